#pragma once

#include "KorvaneCore/keychain/KeychainStore.hpp"

#include <filesystem>
#include <functional>
#include <map>

namespace Korvane {

/// Secrets in one file that only its owner can read (0600), replaced whole: a reader sees all items of a
/// write or none. Writers of all processes take turns on a lock file beside it. A damaged file is
/// KeychainDamaged to read() and write(), which leave it alone; remove() keeps it beside, as "<file>.damaged"
/// or with a number after that, and begins a new one.
class FileKeychain final : public KeychainStore {
public:
    /// The folder must exist once something is written.
    explicit FileKeychain(std::filesystem::path file);

    [[nodiscard]] std::optional<KRCrypto::SecretBytes> read(Key key) override;
    void write(const std::vector<Item>& items) override;
    void remove(const std::vector<Key>& keys) override;

    [[nodiscard]] bool exists() const;

private:
    using Items = std::map<std::string, KRCrypto::SecretBytes>;
    enum class WhenDamaged { refuse, setAside };

    [[nodiscard]] Items load() const;
    [[nodiscard]] Items loadOrSetAside() const;
    void change(WhenDamaged whenDamaged, const std::function<void(Items&)>& edit);

    std::filesystem::path file_;
};

} // namespace Korvane
