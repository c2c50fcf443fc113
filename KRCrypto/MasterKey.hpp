#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/EntryMeta.hpp"
#include "KRCrypto/QuickSendPayload.hpp"
#include "KRCrypto/SecretBytes.hpp"

#include <string>
#include <string_view>

namespace KRCrypto {

// The root key of an account, with what is sealed, named and derived under it. A value; lives as long as the
// signed-in session that holds it. Const operations may be called from any thread.
//
// Opening throws as KRCrypto::open; what is said below comes on top.
class MasterKey {
public:
    static MasterKey generate();
    static MasterKey fromBytes(ByteView bytes); // throws InvalidKeyLength

    const SecretBytes& bytes() const noexcept { return bytes_; }

    const SecretBytes& blindKey() const noexcept { return blindKey_; } // names the entries of a folder

    const SecretBytes& dedupeKey() const noexcept { return dedupeKey_; } // names contents

    // Derived anew on each call.
    SecretBytes appDataKey() const;
    SecretBytes quickSendKey() const;

    // This key, sealed for the account record on the server. Unwrapping throws InvalidKeyLength when the box
    // holds anything but 32 bytes.
    Bytes wrapWithKek(ByteView kek) const;
    Bytes wrapWithRecovery(ByteView rk) const;
    static MasterKey unwrapWithKek(ByteView kek, ByteView wrapped);
    static MasterKey unwrapWithRecovery(ByteView rk, ByteView wrapped);

    // A file's key. Both throw InvalidKeyLength unless it has 32 bytes.
    Bytes wrapFileKey(ByteView fk) const;
    SecretBytes unwrapFileKey(ByteView wrapped) const;

    // Sealing throws as MetaJSON::encode, and SizeMismatch beyond 256 KiB; opening throws InvalidMeta when
    // the metadata is longer, does not decode or is not valid (MetaJSON).
    Bytes sealMeta(const EntryMeta& meta) const;
    EntryMeta openMeta(ByteView sealed) const;

    // What the server compares instead of a name: 64 hex digits, equal for names that differ in case or
    // composition only. Throw InvalidEncoding (toNFC).
    static std::string blindIndexInput(std::string_view name);
    std::string nameBlindIndex(std::string_view name) const;

    // What the server compares instead of a content: 64 hex digits. Takes the 32 raw bytes of the plaintext's
    // SHA-256, not their hex text; throws SizeMismatch otherwise.
    std::string blobId(ByteView plaintextSHA256) const;

    // A small value, bound to its name.
    Bytes sealAppData(std::string_view name, ByteView value) const;
    Bytes openAppData(std::string_view name, ByteView sealed) const;

    // Largest sealed Quick Send item, in bytes.
    static constexpr std::size_t quickSendMaxSealed = 65536;

    // Sealing throws QuickSendTooLarge and InvalidEncoding, opening InvalidMeta.
    Bytes sealQuickSend(const QuickSendPayload& payload) const;
    QuickSendPayload openQuickSend(ByteView sealed) const;

    bool operator==(const MasterKey&) const = default;

private:
    explicit MasterKey(SecretBytes bytes);

    SecretBytes bytes_;
    SecretBytes blindKey_;
    SecretBytes dedupeKey_;
};

// A file key out of any box that holds one. Throws InvalidKeyLength when it holds anything but 32 bytes.
SecretBytes openFileKey(ByteView key, ByteView wrapped, std::string_view label);

} // namespace KRCrypto
