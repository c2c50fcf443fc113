#include "KorvaneCore/api/APIError.hpp"

#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/LocalCalendar.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unicode/datefmt.h>
#include <unicode/timezone.h>

#include <algorithm>
#include <memory>

namespace Korvane {

namespace {

/// The day in the user's time zone and abbreviated style, such as "Nov 21, 2026". ICU only spells the day
/// out: which day it is follows the system's time zones, which are kept up to date.
std::string abbreviatedDay(LocalCalendar::Time date) {
    const auto day = LocalCalendar::dayKey(date);
    const auto midnight = KRJSON::parseDate(day + "T00:00:00Z");
    const std::unique_ptr<icu::DateFormat> style(
        icu::DateFormat::createDateInstance(icu::DateFormat::kMedium));
    if (!midnight || !style)
        return day;
    style->adoptTimeZone(icu::TimeZone::createTimeZone("UTC"));
    icu::UnicodeString text;
    style->format(
        static_cast<UDate>(
            std::chrono::duration_cast<std::chrono::milliseconds>(midnight->time_since_epoch()).count()),
        text);
    std::string utf8;
    return text.toUTF8String(utf8);
}

struct Describe {
    std::string operator()(const APIError::BadRequest& error) const {
        return "Bad request: " + error.message;
    }

    std::string operator()(const APIError::FolderMissing& error) const {
        return error.trashed ? "The destination folder is in the Trash"
                             : "The destination folder no longer exists";
    }

    std::string operator()(const APIError::VersionConflict&) const {
        return "The file was changed on another device";
    }

    std::string operator()(const APIError::RateLimited&) const {
        return "Too many requests \u2014 try again shortly";
    }

    std::string operator()(const APIError::TransferLimitReached& error) const {
        return "This month's transfer allowance is used up. Shared links are paused until " +
               (error.resetsAt ? abbreviatedDay(*error.resetsAt) : "the allowance resets") + ".";
    }

    std::string operator()(const APIError::PartsMissing& error) const {
        constexpr std::size_t shown = 5;
        const auto end =
            error.parts.begin() + static_cast<std::ptrdiff_t>(std::min(shown, error.parts.size()));
        return fmt::format("Upload incomplete (missing parts [{}])",
                           fmt::join(error.parts.begin(), end, ", "));
    }

    std::string operator()(const APIError::Server& error) const {
        const auto text = fmt::format("Server error {} {}", error.status, error.code);
        return error.message ? text + ": " + *error.message : text;
    }

    std::string operator()(const APIError::Transport& error) const {
        return "Network error: " + error.message;
    }

    std::string operator()(const APIError::Decoding& error) const {
        return "Unexpected server response: " + error.message;
    }

    std::string operator()(APIError::Unauthorized) const { return "Not authorised. Please sign in again."; }

    std::string operator()(APIError::Forbidden) const { return "Forbidden"; }

    std::string operator()(APIError::NotFound) const { return "Not found"; }

    std::string operator()(APIError::NameConflict) const { return "An item with that name already exists"; }

    std::string operator()(APIError::QuotaExceeded) const {
        return "Storage full \u2014 delete files to free up space.";
    }

    std::string operator()(APIError::Expired) const { return "Expired"; }

    std::string operator()(APIError::DeviceRevoked) const {
        return "This device was revoked. Sign in again to continue.";
    }

    std::string operator()(APIError::NotSignedIn) const { return "Not signed in"; }

    std::string operator()(APIError::Cancelled) const { return "Cancelled"; }
};

} // namespace

APIError::APIError(Case value) : value_(std::move(value)), description_(std::visit(Describe{}, value_)) {}

bool APIError::isAuthFatal() const noexcept {
    return is<DeviceRevoked>() || is<NotSignedIn>();
}

bool APIError::isRetryable() const noexcept {
    constexpr int lastClientStatus = 499;
    if (const auto* server = as<Server>())
        return server->status > lastClientStatus;
    if (const auto* transport = as<Transport>())
        return transport->retryable;
    return is<RateLimited>();
}

bool APIError::concernsAll() const noexcept {
    return isRetryable() || isAuthFatal() || is<Cancelled>();
}

} // namespace Korvane
