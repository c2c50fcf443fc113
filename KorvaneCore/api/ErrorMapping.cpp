#include "KorvaneCore/api/ErrorMapping.hpp"

#include "KRCrypto/Bytes.hpp"
#include "KorvaneCore/api/ErrorEnvelope.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace Korvane::ErrorMapping {

namespace {

using Details = std::optional<APIErrorInfo::Details>;

template <class Case>
const Case* detail(const Details& details, const char* key) {
    if (!details)
        return nullptr;
    const auto found = details->find(key);
    return found == details->end() ? nullptr : found->second.as<Case>();
}

APIError badRequest(const std::string& code, const std::optional<std::string>& message) {
    return APIError::BadRequest{message.value_or(code)};
}

/// Entries that are no whole numbers name no part.
APIError partsMissing(const Details& details) {
    constexpr double exactIntegers = 9007199254740992.0; // 2^53
    APIError::PartsMissing error;
    if (const auto* missing = detail<JSONValue::Array>(details, "missing"))
        for (const auto& item : *missing)
            if (const auto* number = item.as<double>();
                number != nullptr && std::trunc(*number) == *number && std::abs(*number) <= exactIntegers)
                error.parts.push_back(static_cast<std::int64_t>(*number));
    return error;
}

APIError notFound(const Details& details) {
    const auto* reason = detail<std::string>(details, "reason");
    if (reason == nullptr || *reason != "folder_missing")
        return APIError::NotFound{};
    const auto* folder = detail<std::string>(details, "folderId");
    const auto* trashed = detail<bool>(details, "trashed");
    return APIError::FolderMissing{folder == nullptr ? std::nullopt : std::optional(*folder),
                                   trashed != nullptr && *trashed};
}

/// A file that does not read is as good as none: the conflict itself is certain.
std::optional<RemoteFile> remoteFile(const JSONValue& value) {
    try {
        return KRJSON::decode<RemoteFile>(KRJSON::encode(value));
    } catch (const JSONError&) {
        return std::nullopt;
    }
}

APIError versionConflict(const Details& details) {
    if (!details || !details->contains("file"))
        return APIError::VersionConflict{};
    return APIError::VersionConflict{remoteFile(details->at("file"))};
}

/// A wait must be a number of seconds; one into the past, or for ever, is none.
APIError rateLimited(const std::optional<std::string>& retryAfter) {
    APIError::RateLimited error;
    if (retryAfter) {
        double seconds = 0;
        const auto* end = retryAfter->data() + retryAfter->size();
        const auto [stop, failure] = std::from_chars(retryAfter->data(), end, seconds);
        if (failure == std::errc() && stop == end && std::isfinite(seconds) && seconds >= 0)
            error.retryAfter = seconds;
    }
    return error;
}

APIError transferLimitReached(const Details& details) {
    const auto* date = detail<std::string>(details, "resetsAt");
    return APIError::TransferLimitReached{date == nullptr ? std::nullopt : KRJSON::parseDate(*date)};
}

std::optional<APIError> mapCode(const std::string& code, const std::optional<std::string>& message,
                                const Details& details, const std::optional<std::string>& retryAfter) {
    if (code == "bad_request" || code == "payload_too_large" || code == "invalid_part_layout")
        return badRequest(code, message);
    if (code == "parts_missing")
        return partsMissing(details);
    if (code == "unauthorized")
        return APIError::Unauthorized{};
    if (code == "forbidden")
        return APIError::Forbidden{};
    if (code == "not_found")
        return notFound(details);
    if (code == "name_conflict")
        return APIError::NameConflict{};
    if (code == "version_conflict")
        return versionConflict(details);
    if (code == "quota_exceeded")
        return APIError::QuotaExceeded{};
    if (code == "rate_limited")
        return rateLimited(retryAfter);
    if (code == "transfer_limit_reached")
        return transferLimitReached(details);
    if (code == "expired")
        return APIError::Expired{};
    if (code == "device_revoked")
        return APIError::DeviceRevoked{};
    return std::nullopt;
}

/// The member of that type, or none: every part of an error body may be anything.
template <class T>
std::optional<T> member(const boost::json::object& object, const char* key) {
    try {
        std::optional<T> value;
        KRJSON::readMember(object, key, value);
        return value;
    } catch (const JSONError&) {
        return std::nullopt;
    }
}

/// What reads as an error envelope; the rest, or all of it, is absent.
ErrorEnvelope::Body errorBody(std::string_view text) {
    try {
        const KRJSON::Document document(text);
        const auto* envelope = document.value().if_object();
        const auto* inner = envelope == nullptr ? nullptr : envelope->if_contains("error");
        const auto* error = inner == nullptr ? nullptr : inner->if_object();
        if (error == nullptr)
            return {};
        return {member<std::string>(*error, "code").value_or(""), member<std::string>(*error, "message"),
                member<APIErrorInfo::Details>(*error, "details")};
    } catch (const JSONError&) {
        return {};
    }
}

} // namespace

APIError map(int status, const std::string& code, const std::optional<std::string>& message,
             const Details& details, const std::optional<std::string>& retryAfter) {
    if (auto known = mapCode(code, message, details, retryAfter))
        return *std::move(known);
    switch (status) {
    case 404:
        return APIError::NotFound{};
    case 410:
        return APIError::Expired{};
    case 429:
        return rateLimited(retryAfter);
    case 400:
        return badRequest(code, message);
    case 401:
        return APIError::Unauthorized{};
    case 403:
        return APIError::Forbidden{};
    default:
        return APIError::Server{status, code.empty() ? "http_" + std::to_string(status) : code, message};
    }
}

APIErrorInfo errorInfo(const HTTPResponse& answer) {
    auto [code, message, details] = errorBody(KRCrypto::asText(answer.body));
    const auto header = answer.header("Retry-After");
    const auto retryAfter = header ? std::optional(std::string(*header)) : std::nullopt;
    auto error = map(answer.status, code, message, details, retryAfter);
    return {std::move(error), answer.status, std::move(code), std::move(message), std::move(details)};
}

APIError sessionError(const HTTPError& error, const std::string& record) {
    using Kind = HTTPError::Kind;
    switch (error.kind()) {
    case Kind::connection:
    case Kind::timeout:
        return APIError::Transport{error.what(), true};
    case Kind::notHTTP:
        return APIError::Transport{"no HTTP response", true};
    case Kind::tooLarge:
        return APIError::Decoding{record + ": " + error.what()};
    case Kind::certificate:
    case Kind::malformed:
        break;
    }
    return APIError::Transport{error.what(), false};
}

bool isTokenProblem(const APIErrorInfo& info) {
    if (const auto reason = info.reason())
        return *reason == "token_expired" || *reason == "invalid_token";
    constexpr std::array<std::string_view, 4> messages{"authentication required", "unknown device",
                                                       "access token expired", "invalid access token"};
    return !info.serverMessage ||
           std::find(messages.begin(), messages.end(), *info.serverMessage) != messages.end();
}

} // namespace Korvane::ErrorMapping
