#pragma once

#include "KRCrypto/SecretBytes.hpp"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Korvane {

struct KRConfiguration;

/// The keychain refused, or what it holds is damaged. what() never holds a secret.
class KeychainError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What the keychain holds cannot be read, and never will be: removing something sets it aside.
class KeychainDamaged : public KeychainError {
public:
    using KeychainError::KeychainError;
};

/// Where a signed-in device's secrets outlive the process, shared by all processes of this user and
/// container. Callable from any thread; calls may block for as long as the system's keychain takes, so they
/// belong on a worker thread.
class KeychainStore {
public:
    enum class Key {
        accessToken,
        refreshToken,
        masterKey,
    };

    struct Item {
        Key key;
        KRCrypto::SecretBytes value;
    };

    /// The name an item is stored under, such as "access-token".
    [[nodiscard]] static std::string_view name(Key key) noexcept;

    KeychainStore() = default;
    KeychainStore(const KeychainStore&) = delete;
    KeychainStore& operator=(const KeychainStore&) = delete;
    virtual ~KeychainStore() = default;

    /// None when nothing is stored. Throws KeychainError.
    [[nodiscard]] virtual std::optional<KRCrypto::SecretBytes> read(Key key) = 0;

    /// Stores or replaces the items in this order; where the store can, all at once. Throws KeychainError.
    virtual void write(const std::vector<Item>& items) = 0;

    /// Removes the items; those that are not there do not matter. Throws KeychainError.
    virtual void remove(const std::vector<Key>& keys) = 0;
};

/// The keychain of this session: the Secret Service when the session bus offers one that works, else a file
/// in the container. Once the file exists it is used from then on, by every process; a service that holds
/// secrets and cannot be reached is a KeychainError.
[[nodiscard]] std::shared_ptr<KeychainStore> systemKeychain(const KRConfiguration& configuration);

} // namespace Korvane
