#include "KorvaneCore/queue/TransferRules.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/queue/TransferJob.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"
#include "KorvaneCore/storage/SQLiteError.hpp"

#include <boost/asio/error.hpp>
#include <boost/core/demangle.hpp>
#include <boost/system/system_error.hpp>
#include <cxxabi.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace Korvane::TransferRules {

namespace {

using Verdict = RunFailure::Verdict;

constexpr double longestDelay = 10 * 365 * 86400.0;

/// A delay given from outside, as one that dates can be counted with.
double sensible(double seconds) {
    return std::isnan(seconds) ? 0 : std::clamp(seconds, 0.0, longestDelay);
}

void judgeAPIError(RunFailure& failure, const APIError& error) {
    failure.apiError = error;
    if (error.is<APIError::Cancelled>()) {
        failure.verdict = Verdict::cancelled;
    } else if (const auto* limited = error.as<APIError::RateLimited>()) {
        failure.verdict = Verdict::retry;
        failure.minimumDelay = limited->retryAfter.value_or(0);
    } else if (const auto* transport = error.as<APIError::Transport>()) {
        failure.verdict = transport->retryable ? Verdict::retry : Verdict::failed;
    } else if (const auto* server = error.as<APIError::Server>()) {
        constexpr int firstServerFault = 500;
        failure.verdict = server->status >= firstServerFault ? Verdict::retry : Verdict::failed;
    }
}

RunFailure judge(const std::exception_ptr& error) {
    RunFailure failure;
    try {
        std::rethrow_exception(error);
    } catch (const TransferQueue::DropReason& drop) {
        failure.verdict = Verdict::dropped;
        failure.text = drop.message;
    } catch (const TransferQueue::PermanentFailure& permanent) {
        failure.text = permanent.message;
    } catch (const TransferQueue::RetryLater& later) {
        failure.verdict = Verdict::retry;
        failure.text = later.what();
        failure.exactDelay = later.delay;
    } catch (const KRCrypto::KRCryptoError& crypto) {
        failure.text = crypto.what();
        if (crypto.is<KRCrypto::KRCryptoError::FileChangedDuringRead>())
            failure.verdict = Verdict::retry;
    } catch (const SQLiteError& busy) { // no fault of the job: going on would lose what it has come to
        failure.verdict = Verdict::retry;
        failure.text = std::string("The local index could not be used: ") + busy.message();
    } catch (const boost::system::system_error& system) {
        failure.text = system.what();
        if (system.code() == asio::error::operation_aborted)
            failure.verdict = Verdict::cancelled;
    } catch (const std::exception& other) {
        failure.text = other.what();
        if (const auto* fromService = apiError(other))
            judgeAPIError(failure, *fromService);
    } catch (...) {
        failure.text = boost::core::demangle(abi::__cxa_current_exception_type()->name());
    }
    return failure;
}

} // namespace

RunFailure runFailure(const std::exception_ptr& error, bool cancelled) {
    auto failure = judge(error);
    if (cancelled && failure.verdict != Verdict::dropped)
        failure.verdict = Verdict::cancelled;
    return failure;
}

double retryDelay(const RunFailure& failure, std::int64_t attempts, double jitter) {
    constexpr double base = 2;
    constexpr double ceiling = 300;
    constexpr std::int64_t lastDoubling = 8;
    constexpr double smallestFactor = 0.7;
    if (failure.exactDelay)
        return sensible(*failure.exactDelay);
    const auto doublings = static_cast<double>(std::clamp<std::int64_t>(attempts, 0, lastDoubling));
    const double factor = smallestFactor + (1 - smallestFactor) * std::clamp(jitter, 0.0, 1.0);
    const double delay = std::min(base * std::exp2(doublings), ceiling) * factor;
    return std::max(delay, sensible(failure.minimumDelay));
}

double wakeUpDelay(TransferRecord::Date now, const std::optional<TransferRecord::Date>& nextAttempt) {
    constexpr double shortest = 1;
    constexpr double longest = 300;
    constexpr double idle = 60;
    if (!nextAttempt)
        return idle;
    // In doubles: dates from a damaged row may be too far apart for their own type.
    const auto seconds = [](TransferRecord::Date date) {
        return std::chrono::duration<double>(date.time_since_epoch()).count();
    };
    return std::clamp(seconds(*nextAttempt) - seconds(now), shortest, longest);
}

Selection candidates(const std::vector<TransferRecord>& records, const Situation& situation) {
    Selection selection;
    auto busy = situation.running;
    for (const auto& record : records) {
        if (selection.chosen.size() >= situation.freeSlots)
            break;
        ++selection.seen;
        if (situation.isTaken(record.id))
            continue;
        // What cannot be read starts all the same: the runner says what is wrong with it.
        const auto job = readableJob(record);
        const auto* upload = job ? std::get_if<UploadJob>(&*job) : nullptr;
        if (situation.expensiveNetwork && upload != nullptr && upload->requiresUnmetered) {
            if (selection.heldBack + 1 == selection.seen)
                ++selection.heldBack;
            continue;
        }
        const auto origin = job ? std::optional(originOf(*job)) : std::nullopt;
        const bool exclusive = origin && origin->namesOneThing();
        if (exclusive && std::ranges::find(busy, *origin) != busy.end())
            continue;
        if (exclusive)
            busy.push_back(*origin);
        selection.chosen.push_back({record.id, origin});
    }
    return selection;
}

} // namespace Korvane::TransferRules
