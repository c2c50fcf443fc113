#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/keychain/FileKeychain.hpp"
#include "KorvaneCore/keychain/SecretServiceKeychain.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"

namespace Korvane {

namespace {

/// Decides at every call, since another process may meanwhile have turned to the file.
class SystemKeychain final : public KeychainStore {
public:
    SystemKeychain(std::filesystem::path container, const std::string& accessGroup)
        : container_(std::move(container)),
          file_(container_ / "keychain.json"),
          service_(accessGroup, container_.string()) {}

    [[nodiscard]] std::optional<KRCrypto::SecretBytes> read(Key key) override {
        return usesService() ? service_.read(key) : file_.read(key);
    }

    void write(const std::vector<Item>& items) override {
        if (usesService()) {
            try {
                service_.write(items);
                return;
            } catch (const KeychainError& error) {
                if (!serviceIsEmpty())
                    throw;
                Log::warning("keychain", std::string(error.what()) + "; keeping secrets in a file instead");
            }
        }
        try {
            createDirectories(container_);
        } catch (const FileError& error) {
            throw KeychainError(error.what());
        }
        file_.write(items);
    }

    void remove(const std::vector<Key>& keys) override {
        usesService() ? service_.remove(keys) : file_.remove(keys);
    }

private:
    [[nodiscard]] bool usesService() const { return !file_.exists() && SecretServiceKeychain::isOffered(); }

    /// Whether turning to the file would leave no secret behind where nobody looks any more.
    [[nodiscard]] bool serviceIsEmpty() {
        return !service_.read(Key::accessToken) && !service_.read(Key::refreshToken) &&
               !service_.read(Key::masterKey);
    }

    std::filesystem::path container_;
    FileKeychain file_;
    SecretServiceKeychain service_;
};

} // namespace

std::shared_ptr<KeychainStore> systemKeychain(const KRConfiguration& configuration) {
    return std::make_shared<SystemKeychain>(SharedContainer::location(configuration.appGroup),
                                            configuration.keychainAccessGroup.value_or(""));
}

} // namespace Korvane
