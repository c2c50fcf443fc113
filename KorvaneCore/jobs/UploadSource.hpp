#pragma once

#include "KorvaneCore/jobs/UploadState.hpp"
#include "KorvaneCore/jobs/UploadWork.hpp"

#include <memory>
#include <string>

namespace Korvane {

/// The first step of an upload: what the source holds. When that is not what an earlier run has recorded,
/// hash, session and key are given up together: a file key never meets two contents.
class UploadSource {
public:
    /// Both outlive it.
    UploadSource(UploadWork& work, UploadState& uploads) : work_(work), uploads_(uploads) {}

    /// Finds the work's content. Throws TransferQueue::PermanentFailure, APIError (BadRequest when it is too
    /// large), KRCryptoError (FileChangedDuringRead), FileError, and what the calls to the service throw.
    asio::awaitable<void> find();

private:
    asio::awaitable<std::shared_ptr<const SourceContent>> recordedContent(LocalStat stat);
    asio::awaitable<std::shared_ptr<const SourceContent>> newContent(LocalStat stat);
    asio::awaitable<std::shared_ptr<const SourceContent>> hashed(LocalStat stat);
    asio::awaitable<void> giveUpContent(LocalStat stat);
    asio::awaitable<void> settleOldContent();
    asio::awaitable<void> endSession(std::string uploadId);

    UploadWork& work_;
    UploadState& uploads_;
};

} // namespace Korvane
