#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/platform/FileLock.hpp"
#include "KorvaneCore/storage/SQLiteDatabase.hpp"
#include "KorvaneService/BlobStore.hpp"
#include "KorvaneService/RateLimiter.hpp"
#include "KorvaneService/ServiceSettings.hpp"

#include <string>

namespace Korvane {

/// What all handlers share. Callable from any thread.
class ServiceState {
public:
    /// Opens the data folder and makes its database. Throws FileError, also when another service has the
    /// folder, and SQLiteError.
    explicit ServiceState(ServiceSettings settings);

    [[nodiscard]] const ServiceSettings& settings() const noexcept { return settings_; }

    [[nodiscard]] SQLiteDatabase& database() noexcept { return database_; }

    [[nodiscard]] const BlobStore& blobs() const noexcept { return blobs_; }

    [[nodiscard]] RateLimiter& rateLimiter() noexcept { return rateLimiter_; }

    /// Now, in whole milliseconds, as dates cross the wire.
    [[nodiscard]] Clock::Time now() const;

    /// A key of this service for one purpose; kept with its data, so tokens and URLs outlive a restart.
    [[nodiscard]] KRCrypto::SecretBytes key(std::string_view purpose) const;

    /// Where clients reach the service: "http://127.0.0.1:8787". Set once it listens.
    [[nodiscard]] const std::string& baseURL() const noexcept { return baseURL_; }

    void setBaseURL(std::string url) { baseURL_ = std::move(url); }

private:
    ServiceSettings settings_;
    FileLock lock_;
    SQLiteDatabase database_;
    BlobStore blobs_;
    RateLimiter rateLimiter_;
    KRCrypto::SecretBytes rootKey_;
    std::string baseURL_;
};

/// A new random text that cannot be guessed.
[[nodiscard]] std::string newSecret();

} // namespace Korvane
