#include "KorvaneService/Refusal.hpp"

#include "KorvaneCore/json/KRJSON.hpp"

#include <boost/json/serialize.hpp>

#include <utility>

namespace Korvane {

namespace json = boost::json;

Refusal::Refusal(unsigned status, std::string code, std::string message, json::object details)
    : status_(status), code_(std::move(code)), message_(std::move(message)), details_(std::move(details)) {}

Refusal Refusal::badRequest(std::string message) {
    return {400, "bad_request", std::move(message)};
}

Refusal Refusal::tooLarge() {
    return {413, "payload_too_large", "the body is too large"};
}

Refusal Refusal::invalidPartLayout(std::string message) {
    return {400, "invalid_part_layout", std::move(message)};
}

Refusal Refusal::partsMissing(const std::vector<std::int64_t>& missing) {
    return {409,
            "parts_missing",
            "parts are missing",
            {{"missing", json::array(missing.begin(), missing.end())}}};
}

Refusal Refusal::authenticationRequired() {
    return {401, "unauthorized", "authentication required"};
}

Refusal Refusal::tokenExpired() {
    return {401, "unauthorized", "access token expired", {{"reason", "token_expired"}}};
}

Refusal Refusal::invalidToken() {
    return {401, "unauthorized", "invalid access token", {{"reason", "invalid_token"}}};
}

Refusal Refusal::wrongCredentials(std::string message) {
    return {401, "unauthorized", std::move(message), {{"reason", "wrong_credentials"}}};
}

Refusal Refusal::deviceRevoked() {
    return {401, "device_revoked", "this device was revoked"};
}

Refusal Refusal::forbidden(std::string message) {
    return {403, "forbidden", std::move(message)};
}

Refusal Refusal::notFound(std::string message) {
    return {404, "not_found", std::move(message)};
}

Refusal Refusal::folderMissing(const std::string& folderId, bool trashed) {
    return {404,
            "not_found",
            "no such folder",
            {{"reason", "folder_missing"}, {"folderId", folderId}, {"trashed", trashed}}};
}

Refusal Refusal::nameConflict() {
    return {409, "name_conflict", "an item with that name already exists"};
}

Refusal Refusal::versionConflict(const std::optional<RemoteFile>& current) {
    json::object details;
    if (current)
        details["file"] = KRJSON::encode(*current);
    return {409, "version_conflict", "it was changed on another device", std::move(details)};
}

Refusal Refusal::quotaExceeded() {
    return {413, "quota_exceeded", "the account's storage is full"};
}

Refusal Refusal::rateLimited(std::chrono::seconds wait) {
    Refusal refusal(429, "rate_limited", "too many requests");
    refusal.wait_ = wait;
    return refusal;
}

Refusal Refusal::expired(std::string message) {
    return {410, "expired", std::move(message)};
}

Refusal Refusal::conflict(std::string code, std::string message) {
    return {409, std::move(code), std::move(message)};
}

std::string Refusal::envelope() const {
    json::object error{{"code", code_}, {"message", message_}};
    if (!details_.empty())
        error["details"] = details_;
    return json::serialize(json::object{{"error", std::move(error)}});
}

} // namespace Korvane
