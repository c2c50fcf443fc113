#include "KorvaneCore/queue/QueueRun.hpp"

#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/SQLiteError.hpp"

#include <boost/asio/redirect_error.hpp>

#include <utility>

namespace Korvane {

QueueRun::QueueRun(const Strand& strand, std::shared_ptr<LocalIndex> index,
                   std::shared_ptr<const TransferQueue::OwnWriteHandler> ownWrites, TransferRecord record,
                   std::optional<TransferOrigin> origin)
    : index_(std::move(index)),
      ownWrites_(std::move(ownWrites)),
      record_(std::move(record)),
      origin_(std::move(origin)),
      end_(strand, asio::steady_timer::time_point::max()) {}

void QueueRun::save(const TransferJob& job) {
    record_.payload = transferPayload(job);
    if (!detached_)
        index_->updateTransfer(record_);
}

void QueueRun::setProgress(std::int64_t progress, std::int64_t total) {
    record_.progress = progress;
    record_.total = total;
    if (detached_)
        return;
    try {
        index_->setTransferProgress(record_.id, progress, total);
    } catch (const SQLiteError& error) {
        Log::warning("queue", error.what());
    }
}

asio::awaitable<void> QueueRun::reportOwnWrite(std::filesystem::path path, LocalStat stat) {
    const auto handler = *ownWrites_; // lives as long as it runs, whatever is set meanwhile
    if (!handler)
        co_return;
    try {
        co_await handler(std::move(path), stat);
    } catch (const std::exception& error) {
        Log::error("queue", error.what());
    }
}

void QueueRun::cancel() {
    cancelled_ = true;
    cancellation_.emit(asio::cancellation_type::terminal);
}

void QueueRun::end() {
    ended_ = true;
    end_.cancel();
}

asio::awaitable<void> QueueRun::ended() {
    while (!ended_) {
        boost::system::error_code woken;
        co_await end_.async_wait(asio::redirect_error(asio::use_awaitable, woken));
    }
}

} // namespace Korvane
