#include "KorvaneService/ServiceState.hpp"

#include "KRCrypto/B64.hpp"
#include "KRCrypto/Derivation.hpp"
#include "KRCrypto/Random.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneService/Columns.hpp"
#include "KorvaneService/Schema.hpp"

#include <utility>

namespace Korvane {

namespace {

FileLock claim(const std::filesystem::path& folder) {
    createDirectories(folder);
    FileLock lock(folder / "service.lock");
    if (!lock.tryLock())
        throw FileError("claim", folder, std::make_error_code(std::errc::device_or_resource_busy));
    return lock;
}

/// The key all others derive from, made when the folder is new.
KRCrypto::SecretBytes rootKey(SQLiteDatabase& database) {
    const auto key = KRCrypto::randomSecret(KRCrypto::keySize);
    database.run("INSERT OR IGNORE INTO service_keys (name, value) VALUES ('root', ?)",
                 KRCrypto::Bytes(key.view().begin(), key.view().end()));
    auto stored =
        Columns::bytes(database.query("SELECT value FROM service_keys WHERE name = 'root'").at(0), "value");
    auto result = KRCrypto::SecretBytes::copyOf(stored);
    KRCrypto::wipe(stored);
    return result;
}

SQLiteDatabase opened(const std::filesystem::path& folder) {
    SQLiteDatabase database(folder / "service.sqlite");
    createServiceTables(database);
    return database;
}

} // namespace

ServiceState::ServiceState(ServiceSettings settings)
    : settings_(std::move(settings)),
      lock_(claim(settings_.folder)),
      database_(opened(settings_.folder)),
      blobs_(settings_.folder, settings_.chunkSize),
      rateLimiter_(settings_.clock),
      rootKey_(rootKey(database_)) {}

Clock::Time ServiceState::now() const {
    return std::chrono::floor<std::chrono::milliseconds>(settings_.clock->now());
}

KRCrypto::SecretBytes ServiceState::key(std::string_view purpose) const {
    return KRCrypto::subkey(rootKey_, purpose);
}

std::string newSecret() {
    return KRCrypto::B64::encodeURL(KRCrypto::randomBytes(32));
}

} // namespace Korvane
