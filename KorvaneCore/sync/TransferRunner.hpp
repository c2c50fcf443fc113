#pragma once

#include "KorvaneCore/sync/JobContext.hpp"
#include "KorvaneCore/sync/JobRunner.hpp"
#include "KorvaneCore/sync/UploadState.hpp"

namespace Korvane {

/// Performs uploads and downloads for the queue.
class TransferRunner final : public JobRunner {
public:
    explicit TransferRunner(JobContext context) : context_(std::move(context)) {}

    asio::awaitable<Result> run(TransferRun& run) override;
    asio::awaitable<void> abortUpload(std::string uploadId) override;

private:
    JobContext context_;
    UploadState uploads_;
};

} // namespace Korvane
