#pragma once

#include "KorvaneCore/api/records/RemoteFile.hpp"

#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace Korvane {

/// What a call to the service can fail with; what() is the sentence users are shown. Whether to try again
/// follows from the case, never from the text.
class APIError : public std::exception {
public:
    struct BadRequest {
        std::string message;
        bool operator==(const BadRequest&) const = default;
    };

    struct FolderMissing {
        std::optional<std::string> folderId;
        bool trashed = false;
        bool operator==(const FolderMissing&) const = default;
    };

    /// With the server's current file, when it sent one.
    struct VersionConflict {
        std::optional<RemoteFile> file;
        bool operator==(const VersionConflict&) const = default;
    };

    struct RateLimited {
        std::optional<double> retryAfter; ///< seconds
        bool operator==(const RateLimited&) const = default;
    };

    struct TransferLimitReached {
        std::optional<std::chrono::system_clock::time_point> resetsAt;
        bool operator==(const TransferLimitReached&) const = default;
    };

    struct PartsMissing {
        std::vector<std::int64_t> parts; ///< part numbers
        bool operator==(const PartsMissing&) const = default;
    };

    struct Server {
        int status = 0;
        std::string code;
        std::optional<std::string> message;
        bool operator==(const Server&) const = default;
    };

    struct Transport {
        std::string message;
        bool retryable = false;
        bool operator==(const Transport&) const = default;
    };

    /// An answer that is not the record it should be. The message begins with the record's name.
    struct Decoding {
        std::string message;
        bool operator==(const Decoding&) const = default;
    };

    struct Unauthorized {
        bool operator==(const Unauthorized&) const = default;
    };

    struct Forbidden {
        bool operator==(const Forbidden&) const = default;
    };

    struct NotFound {
        bool operator==(const NotFound&) const = default;
    };

    struct NameConflict {
        bool operator==(const NameConflict&) const = default;
    };

    struct QuotaExceeded {
        bool operator==(const QuotaExceeded&) const = default;
    };

    struct Expired {
        bool operator==(const Expired&) const = default;
    };

    struct DeviceRevoked {
        bool operator==(const DeviceRevoked&) const = default;
    };

    struct NotSignedIn {
        bool operator==(const NotSignedIn&) const = default;
    };

    struct Cancelled {
        bool operator==(const Cancelled&) const = default;
    };

    using Case = std::variant<BadRequest, FolderMissing, VersionConflict, RateLimited, TransferLimitReached,
                              PartsMissing, Server, Transport, Decoding, Unauthorized, Forbidden, NotFound,
                              NameConflict, QuotaExceeded, Expired, DeviceRevoked, NotSignedIn, Cancelled>;

    APIError(Case value); // NOLINT(google-explicit-constructor): an error is its case

    template <class C>
        requires(!std::is_same_v<C, APIError> && !std::is_same_v<C, Case> && std::is_constructible_v<Case, C>)
    APIError(C value) // NOLINT(google-explicit-constructor)
        : APIError(Case(std::move(value))) {}

    /// The payload when the error is of that case, else nullptr.
    template <class C>
    [[nodiscard]] const C* as() const noexcept {
        return std::get_if<C>(&value_);
    }

    template <class C>
    [[nodiscard]] bool is() const noexcept {
        return std::holds_alternative<C>(value_);
    }

    [[nodiscard]] const Case& value() const noexcept { return value_; }

    /// The sign-in is no longer usable.
    [[nodiscard]] bool isAuthFatal() const noexcept;

    /// Trying the same again later may help.
    [[nodiscard]] bool isRetryable() const noexcept;

    /// Every other call would meet it as well now: there is no network, service or sign-in, or the caller
    /// ends.
    [[nodiscard]] bool concernsAll() const noexcept;

    [[nodiscard]] const std::string& errorDescription() const noexcept { return description_; }

    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

    friend bool operator==(const APIError& a, const APIError& b) { return a.value_ == b.value_; }

private:
    Case value_;
    std::string description_;
};

} // namespace Korvane
