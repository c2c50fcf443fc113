#include "KorvaneCore/publisher/WidgetSchedule.hpp"

#include "KorvaneCore/config/KRIdentifiers.hpp"
#include "KorvaneCore/platform/Finally.hpp"
#include "KorvaneCore/platform/LocalCalendar.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/Spawn.hpp"

#include <boost/asio/redirect_error.hpp>

#include <algorithm>
#include <exception>
#include <functional>
#include <utility>

namespace Korvane {

namespace {

constexpr auto category = "widget";

} // namespace

WidgetSchedule::WidgetSchedule(const asio::any_io_executor& executor, std::shared_ptr<Clock> clock,
                               NotificationCenter notifications, Work work)
    : strand_(asio::make_strand(executor)),
      clock_(std::move(clock)),
      notifications_(std::move(notifications)),
      work_(std::move(work)),
      taskEnd_(strand_, asio::steady_timer::time_point::max()) {}

asio::awaitable<void> WidgetSchedule::start() {
    return on<void>(strand_, std::bind_front(&WidgetSchedule::startOnStrand, shared_from_this()));
}

asio::awaitable<void> WidgetSchedule::stop() {
    return on<void>(strand_, std::bind_front(&WidgetSchedule::stopOnStrand, shared_from_this()));
}

void WidgetSchedule::changed() {
    asio::post(strand_, [weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->changedOnStrand();
    });
}

asio::awaitable<void> WidgetSchedule::startOnStrand() {
    if (isRunning_)
        co_return;
    // The observation's thread only posts: it never owns the schedule, which would have to join it.
    const auto tell = [weak = weak_from_this(), strand = strand_] {
        asio::post(strand, [weak] {
            if (const auto self = weak.lock())
                self->changedOnStrand();
        });
    };
    observation_ = std::make_shared<NotificationCenter::Observation>(
        notifications_.observe(KRIdentifiers::widgetsChangedNotification, tell));
    isRunning_ = true;
    begin(&WidgetSchedule::followDays, following_);
    changedOnStrand();
}

asio::awaitable<void> WidgetSchedule::stopOnStrand() {
    isRunning_ = false;
    // Its end joins its thread, away from the strand.
    co_await offload([observation = std::exchange(observation_, nullptr)]() mutable { observation.reset(); });
    for (const auto& task : {publishing_, following_})
        if (task)
            (*task)->emit(asio::cancellation_type::terminal);
    while (publishing_ || following_) {
        boost::system::error_code woken;
        co_await taskEnd_.async_wait(asio::redirect_error(asio::use_awaitable, woken));
    }
}

void WidgetSchedule::changedOnStrand() {
    if (!isRunning_)
        return;
    if (publishing_)
        again_ = true;
    else
        begin(&WidgetSchedule::publish, publishing_);
}

void WidgetSchedule::begin(Task task, std::optional<Cancellation>& slot) {
    slot = std::make_shared<asio::cancellation_signal>();
    spawn(strand_, category, run(task, slot), *slot);
}

asio::awaitable<void> WidgetSchedule::run(Task task, std::optional<Cancellation>& slot) {
    const auto self = shared_from_this();
    const Finally atEnd([&] {
        slot.reset();
        taskEnd_.cancel();
    });
    co_await (this->*task)();
}

asio::awaitable<void> WidgetSchedule::publish() {
    do {
        co_await clock_->sleep(delay);
        again_ = false;
        try {
            co_await work_();
        } catch (const std::exception& error) {
            if (isRunning_) // else it was cancelled
                Log::error(category, error.what());
        }
    } while (again_ && isRunning_);
}

asio::awaitable<void> WidgetSchedule::followDays() {
    auto today = LocalCalendar::day(clock_->now());
    for (;;) {
        const auto now = clock_->now();
        const auto tomorrow = LocalCalendar::nextStartOfDay(now);
        Clock::Duration wait = dayLookInterval;
        if (tomorrow)
            wait = std::min(wait, std::chrono::duration_cast<Clock::Duration>(*tomorrow - now));
        co_await clock_->sleep(wait);
        if (const auto day = LocalCalendar::day(clock_->now()); day != today) {
            today = day;
            changedOnStrand();
        }
    }
}

} // namespace Korvane
