#pragma once

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/NotificationCenter.hpp"
#include "KorvaneCore/platform/Strand.hpp"

#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/steady_timer.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Korvane {

/// Has the widgets published anew when what they show may have changed: after changed(), after a post of
/// KRIdentifiers::widgetsChangedNotification, and when a new day begins in the user's calendar.
///
/// Suspending: its state lives on a strand, and every operation may be awaited from any executor. Held by
/// shared_ptr. The executor's threads must run until stop() has returned.
class WidgetSchedule : public std::enable_shared_from_this<WidgetSchedule> {
public:
    /// Publishes. Awaited on the schedule's strand, never twice at a time; cancelled by stop(), which it must
    /// not await itself. What it throws is logged.
    using Work = std::function<asio::awaitable<void>()>;

    /// From the first change to the publication, so that changes that come together are published once.
    static constexpr std::chrono::seconds delay{1};

    /// How long a new day may go unnoticed when the computer slept or changed its time zone.
    static constexpr std::chrono::minutes dayLookInterval{5};

    WidgetSchedule(const asio::any_io_executor& executor, std::shared_ptr<Clock> clock,
                   NotificationCenter notifications, Work work);

    /// Publishes after `delay`, and after every change from now on. Throws FileError when posts cannot be
    /// observed; the schedule is stopped then.
    asio::awaitable<void> start();

    /// Cancels what runs and waits for its end.
    asio::awaitable<void> stop();

    /// Something the widgets show may have changed. Callable from any thread; nothing happens while stopped.
    void changed();

private:
    using Cancellation = std::shared_ptr<asio::cancellation_signal>;
    using Task = asio::awaitable<void> (WidgetSchedule::*)();

    asio::awaitable<void> startOnStrand();
    asio::awaitable<void> stopOnStrand();
    void changedOnStrand();
    void begin(Task task, std::optional<Cancellation>& slot);
    asio::awaitable<void> run(Task task, std::optional<Cancellation>& slot);
    asio::awaitable<void> publish();
    asio::awaitable<void> followDays();

    const Strand strand_;
    const std::shared_ptr<Clock> clock_;
    NotificationCenter notifications_;
    const Work work_;

    // On the strand:
    bool isRunning_ = false;
    bool again_ = false; // something changed while the work ran
    std::shared_ptr<NotificationCenter::Observation> observation_;
    std::optional<Cancellation> publishing_; // while the task runs
    std::optional<Cancellation> following_;  // likewise
    asio::steady_timer taskEnd_;             // never expires; cancelled when one has ended
};

} // namespace Korvane
