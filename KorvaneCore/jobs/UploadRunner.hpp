#pragma once

#include "KorvaneCore/jobs/FileRegistration.hpp"
#include "KorvaneCore/jobs/UploadSession.hpp"
#include "KorvaneCore/jobs/UploadState.hpp"

namespace Korvane {

/// One run of an upload: a local file becomes a sealed blob and a file of the service. Every step stores what
/// it found before the next one begins, so that a later run goes on from there.
class UploadRunner {
public:
    /// All three outlive the run.
    UploadRunner(const JobContext& context, TransferRun& run, UploadState& uploads, UploadJob job);

    /// Throws what steers the queue (see TransferQueue), and what its parts throw.
    asio::awaitable<TransferOutcome::Uploaded> upload();

private:
    asio::awaitable<RemoteFile> store();
    asio::awaitable<RemoteFile> storeOnce();
    asio::awaitable<RemoteFile> sendAndRegister(PartPlan plan);
    asio::awaitable<void> addThumbnail(const RemoteFile& file);

    UploadState& uploads_;
    UploadWork work_;
    UploadSession session_;
    FileRegistration registration_;
};

} // namespace Korvane
