#include "KorvaneCommand/TimedRunner.hpp"

#include <utility>

namespace Korvane {

/// One run; the first of those side by side begins the time, and the last one ends it.
class TimedRunner::Interval {
public:
    explicit Interval(TimedRunner& runner) : runner_(runner) {
        if (runner_.running_++ == 0)
            runner_.since_ = runner_.clock_->monotonic();
    }

    Interval(const Interval&) = delete;
    Interval& operator=(const Interval&) = delete;

    ~Interval() {
        if (--runner_.running_ == 0)
            runner_.busy_ += runner_.clock_->monotonic() - runner_.since_;
    }

private:
    TimedRunner& runner_;
};

TimedRunner::TimedRunner(std::unique_ptr<JobRunner> runner, std::shared_ptr<Clock> clock)
    : runner_(std::move(runner)), clock_(std::move(clock)) {}

asio::awaitable<JobRunner::Result> TimedRunner::run(TransferRun& run) {
    const Interval interval(*this);
    co_return co_await runner_->run(run);
}

asio::awaitable<void> TimedRunner::abortUpload(std::string uploadId) {
    return runner_->abortUpload(std::move(uploadId));
}

} // namespace Korvane
