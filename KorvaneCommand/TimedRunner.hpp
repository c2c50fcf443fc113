#pragma once

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/queue/JobRunner.hpp"

#include <memory>

namespace Korvane {

/// Another runner, with the time that its transfers take. Used on the queue's strand.
class TimedRunner final : public JobRunner {
public:
    TimedRunner(std::unique_ptr<JobRunner> runner, std::shared_ptr<Clock> clock);

    asio::awaitable<Result> run(TransferRun& run) override;
    asio::awaitable<void> abortUpload(std::string uploadId) override;

    /// How long at least one transfer ran, whether it succeeded or not; pauses between them do not count.
    [[nodiscard]] Clock::Duration busyTime() const noexcept { return busy_; }

private:
    class Interval;

    const std::unique_ptr<JobRunner> runner_;
    const std::shared_ptr<Clock> clock_;
    int running_ = 0;
    Clock::Instant since_; ///< while anything runs
    Clock::Duration busy_{};
};

} // namespace Korvane
