#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/keychain/FileKeychain.hpp"
#include "KorvaneCore/keychain/SecretServiceKeychain.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"

namespace Korvane {

namespace {

/// Decides at every call, since another process may meanwhile have turned to the file. A bus may offer a
/// service that does not work; until something was stored with it, that keeps nobody from signing in.
class SystemKeychain final : public KeychainStore {
public:
    SystemKeychain(std::filesystem::path container, const std::string& accessGroup)
        : container_(std::move(container)),
          file_(container_ / "keychain.json"),
          mark_(container_ / "keychain.service"),
          service_(accessGroup, container_.string()) {}

    [[nodiscard]] std::optional<KRCrypto::SecretBytes> read(Key key) override {
        if (!usesService())
            return file_.read(key);
        try {
            return service_.read(key);
        } catch (const KeychainError& error) {
            if (isMarked())
                throw;
            Log::info("keychain", error.what());
            return std::nullopt; // nothing was ever stored there
        }
    }

    void write(const std::vector<Item>& items) override {
        if (usesService()) {
            try {
                service_.write(items);
                mark();
                return;
            } catch (const KeychainError& error) {
                if (serviceHoldsSecrets())
                    throw;
                Log::warning("keychain", std::string(error.what()) + "; keeping secrets in a file instead");
            }
        }
        requireContainer();
        file_.write(items);
    }

    void remove(const std::vector<Key>& keys) override {
        if (!usesService()) {
            file_.remove(keys);
            return;
        }
        try {
            service_.remove(keys);
        } catch (const KeychainError& error) {
            if (isMarked())
                throw;
            Log::info("keychain", error.what());
            return;
        }
        std::error_code stays; // then the service stays the one that must work
        if (isMarked() && !serviceHoldsSecrets())
            std::filesystem::remove(mark_, stays);
    }

private:
    [[nodiscard]] bool usesService() const { return !file_.exists() && SecretServiceKeychain::isOffered(); }

    /// Whether turning to the file would leave a secret behind where nobody looks any more.
    [[nodiscard]] bool serviceHoldsSecrets() {
        try {
            return service_.read(Key::accessToken) || service_.read(Key::refreshToken) ||
                   service_.read(Key::masterKey);
        } catch (const KeychainError&) {
            return isMarked();
        }
    }

    /// Whether something is stored with the service: then one that cannot be read is an error, else it is
    /// as good as none.
    [[nodiscard]] bool isMarked() const { return std::filesystem::exists(mark_); }

    void mark() {
        if (isMarked())
            return;
        requireContainer();
        try {
            replaceFile(mark_, "");
        } catch (const FileError& error) {
            throw KeychainError(error.what());
        }
    }

    void requireContainer() const {
        try {
            createDirectories(container_);
        } catch (const FileError& error) {
            throw KeychainError(error.what());
        }
    }

    std::filesystem::path container_;
    FileKeychain file_;
    std::filesystem::path mark_;
    SecretServiceKeychain service_;
};

} // namespace

std::shared_ptr<KeychainStore> systemKeychain(const KRConfiguration& configuration) {
    return std::make_shared<SystemKeychain>(SharedContainer::location(configuration.appGroup),
                                            configuration.keychainAccessGroup.value_or(""));
}

} // namespace Korvane
