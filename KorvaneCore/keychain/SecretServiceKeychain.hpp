#pragma once

#include "KorvaneCore/keychain/KeychainStore.hpp"

#include <string>

namespace Korvane {

/// Secrets in the desktop's keyring (Secret Service over the session bus, by libsecret). An operation that
/// takes longer than 20 s, because the keyring waits for its user, is given up.
class SecretServiceKeychain final : public KeychainStore {
public:
    /// Items of other groups or containers are never seen.
    SecretServiceKeychain(std::string accessGroup, std::string container);

    /// Whether the session bus has the service or can start it; whether it works, only using it shows.
    [[nodiscard]] static bool isOffered();

    [[nodiscard]] std::optional<KRCrypto::SecretBytes> read(Key key) override;
    void write(const std::vector<Item>& items) override;
    void remove(const std::vector<Key>& keys) override;

private:
    std::string accessGroup_;
    std::string container_;
};

} // namespace Korvane
