#pragma once

#include "KRCrypto/Argon2.hpp"
#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/EntryMeta.hpp"
#include "KRCrypto/SecretBytes.hpp"

#include <optional>
#include <string_view>

namespace KRCrypto {

// The key of a share link. It travels in the link's fragment, which browsers do not send to a server.
class LinkKey {
public:
    static LinkKey generate();

    // Unpadded base64url of 32 bytes. Throws InvalidFragment.
    static LinkKey fromFragment(std::string_view fragment);

    static LinkKey fromBytes(ByteView bytes); // throws InvalidKeyLength

    const SecretBytes& bytes() const noexcept { return bytes_; }

    SecretBytes fragment() const; // 43 characters

    // The key that protects the shared entry: this one or, with a password, one derived from both. Throws
    // InvalidPassword unless password and salt are both present and not empty, or both absent, and Argon2
    // when the costs, which come from the link, are out of bounds.
    SecretBytes entryKey(std::optional<std::string_view> password, std::optional<ByteView> passwordSalt,
                         const Argon2Params& params) const;

    bool operator==(const LinkKey&) const = default;

private:
    explicit LinkKey(SecretBytes bytes);

    SecretBytes bytes_;
};

// A shared file's key, readable by whoever has the link. Both throw InvalidKeyLength unless it has 32 bytes;
// unwrapping as well as KRCrypto::open does.
Bytes wrapLinkKey(ByteView entryKey, ByteView fk);
SecretBytes unwrapLinkKey(ByteView entryKey, ByteView wrapped);

// A shared entry's metadata. Throw as MasterKey::sealMeta and openMeta.
Bytes sealLinkMeta(ByteView entryKey, const EntryMeta& meta);
EntryMeta openLinkMeta(ByteView entryKey, ByteView sealed);

} // namespace KRCrypto
