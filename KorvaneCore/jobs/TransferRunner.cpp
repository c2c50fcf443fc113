#include "KorvaneCore/jobs/TransferRunner.hpp"

#include "KorvaneCore/jobs/DownloadRunner.hpp"
#include "KorvaneCore/jobs/UploadRunner.hpp"

#include <utility>

namespace Korvane {

asio::awaitable<JobRunner::Result> TransferRunner::run(TransferRun& run) {
    auto job = transferJob(run.record());
    if (auto* upload = std::get_if<UploadJob>(&job)) {
        UploadRunner runner(context_, run, uploads_, std::move(*upload));
        co_return co_await runner.upload();
    }
    DownloadRunner runner(context_, run, std::move(std::get<DownloadJob>(job)));
    co_return co_await runner.download();
}

asio::awaitable<void> TransferRunner::abortUpload(std::string uploadId) {
    co_await context_.api->abortUpload(std::move(uploadId));
}

} // namespace Korvane
