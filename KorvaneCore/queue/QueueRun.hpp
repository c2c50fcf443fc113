#pragma once

#include "KorvaneCore/platform/Strand.hpp"
#include "KorvaneCore/queue/JobRunner.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"

#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/steady_timer.hpp>

#include <memory>
#include <optional>

namespace Korvane {

/// A transfer that runs, on the queue's side. Used on the queue's strand.
class QueueRun final : public TransferRun {
public:
    QueueRun(const Strand& strand, std::shared_ptr<LocalIndex> index,
             std::shared_ptr<const TransferQueue::OwnWriteHandler> ownWrites, TransferRecord record,
             std::optional<TransferOrigin> origin);

    [[nodiscard]] const TransferRecord& record() const noexcept override { return record_; }

    void save(const TransferJob& job) override;
    void setProgress(std::int64_t progress, std::int64_t total) override;
    asio::awaitable<void> reportOwnWrite(std::filesystem::path path, LocalStat stat) override;

    [[nodiscard]] const std::optional<TransferOrigin>& origin() const noexcept { return origin_; }

    [[nodiscard]] asio::cancellation_slot slot() noexcept { return cancellation_.slot(); }

    void cancel();

    [[nodiscard]] bool isCancelled() const noexcept { return cancelled_; }

    /// A new record took the place of this one under its id: nothing of this run is stored any more.
    void detach() noexcept { detached_ = true; }

    [[nodiscard]] bool isDetached() const noexcept { return detached_; }

    /// Wakes who waits in ended().
    void end();
    asio::awaitable<void> ended();

private:
    std::shared_ptr<LocalIndex> index_;
    std::shared_ptr<const TransferQueue::OwnWriteHandler> ownWrites_;
    TransferRecord record_;
    std::optional<TransferOrigin> origin_;
    asio::cancellation_signal cancellation_;
    asio::steady_timer end_; // never expires; cancelled to wake
    bool cancelled_ = false;
    bool detached_ = false;
    bool ended_ = false;
};

} // namespace Korvane
