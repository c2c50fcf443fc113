#pragma once

#include "KorvaneCore/api/records/RemoteFile.hpp"

#include <boost/json/object.hpp>

#include <chrono>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Korvane {

/// An answer other than success. Handlers throw it; the client gets it as the error envelope.
class Refusal : public std::exception {
public:
    Refusal(unsigned status, std::string code, std::string message, boost::json::object details = {});

    static Refusal badRequest(std::string message);
    static Refusal tooLarge();
    static Refusal invalidPartLayout(std::string message);
    static Refusal partsMissing(const std::vector<std::int64_t>& missing);
    static Refusal authenticationRequired();
    static Refusal tokenExpired();
    static Refusal invalidToken();
    static Refusal wrongCredentials(std::string message);
    static Refusal deviceRevoked();
    static Refusal forbidden(std::string message);
    static Refusal notFound(std::string message);
    static Refusal folderMissing(const std::string& folderId, bool trashed);
    static Refusal nameConflict();
    static Refusal versionConflict(const std::optional<RemoteFile>& current);
    static Refusal quotaExceeded();
    static Refusal rateLimited(std::chrono::seconds wait);
    static Refusal expired(std::string message);
    static Refusal conflict(std::string code, std::string message);

    [[nodiscard]] unsigned status() const noexcept { return status_; }

    /// {"error":{"code":…,"message":…,"details":…}}
    [[nodiscard]] std::string envelope() const;

    /// For a "Retry-After" header, in seconds.
    [[nodiscard]] std::optional<std::chrono::seconds> wait() const noexcept { return wait_; }

    [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }

private:
    unsigned status_;
    std::string code_;
    std::string message_;
    boost::json::object details_;
    std::optional<std::chrono::seconds> wait_;
};

} // namespace Korvane
