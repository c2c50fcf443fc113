#pragma once

#include "KorvaneCore/jobs/JobContext.hpp"
#include "KorvaneCore/jobs/UploadState.hpp"
#include "KorvaneCore/queue/JobRunner.hpp"

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
