#pragma once

#include "KRCrypto/Argon2.hpp"
#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/EntryMeta.hpp"
#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/PairingKeyPair.hpp"
#include "KRCrypto/SecretBytes.hpp"

#include <cstdint>
#include <string>
#include <string_view>

// Drops: links through which anyone can leave files that only the owner opens. The sender encrypts each file
// to the owner's X25519 key with a fresh key pair of its own. All that senders write is untrusted.
namespace KRCrypto::DropCrypto {

// Most characters (code points) sanitizeLabel leaves.
inline constexpr std::size_t labelMax = 80;

// Starts the blob identifiers of received items.
inline constexpr std::string_view blobPrefix = "drop_";

bool isReceivedBlob(std::string_view id) noexcept;

// The owner's private record of one drop link.
struct LinkSecret {
    std::int64_t v = 1;
    SecretBytes token; // the drop's access token, UTF-8
    std::string label;
    std::string folderId;

    bool operator==(const LinkSecret&) const = default;
};

// Sealing throws InvalidEncoding when a text is not UTF-8, and SizeMismatch beyond 256 KiB; opening as
// KRCrypto::open, and InvalidMeta, also for another version than 1.
Bytes sealLink(const MasterKey& mk, const LinkSecret& link);
LinkSecret openLink(const MasterKey& mk, ByteView sealed);

// The drop's private key, sealed for the owner. Wrapping throws InvalidKeyLength unless it has 32 bytes.
// Opening throws as KRCrypto::open, InvalidKeyLength, and InvalidPublicKey when the public key, which comes
// from the server, is not the private key's own.
Bytes wrapPrivateKey(const MasterKey& mk, ByteView privateKey);
PairingKeyPair openKeyPair(const MasterKey& mk, ByteView wrappedPrivateKey, ByteView publicKey);

// The key of one item, the same for sender and owner. Throws InvalidKeyLength, InvalidPublicKey.
SecretBytes dropKey(ByteView myPriv, ByteView theirPub, ByteView ephemeralPub, ByteView ownerPub);

struct OpenedItem {
    SecretBytes fileKey;
    FileMeta meta; // sanitised
};

// A received item's file key and metadata. Throws InvalidPublicKey, as KRCrypto::open, InvalidKeyLength when
// the file key has not 32 bytes, InvalidMeta, and InvalidEncoding for a name that does not compose.
OpenedItem openItem(const PairingKeyPair& owner, ByteView ephemeralPublicKey, ByteView wrappedKey,
                    ByteView metaEnc);

// What people compare to know a drop's key: 8 groups of four hex digits of a hash. Throws InvalidPublicKey
// unless the key has 32 bytes.
std::string fingerprint(ByteView publicKey);

// What a drop link carries after "#": base64url of the public key and, when the sanitised label is not empty,
// "." and base64url of the label. Throws InvalidPublicKey, InvalidEncoding.
std::string fragment(ByteView publicKey, std::string_view label);

// The key a drop password gives; the password may be empty. Throws Argon2 when the costs, which come from the
// link, are out of bounds.
SecretBytes derivePasswordKey(std::string_view password, ByteView salt, const Argon2Params& params);

// Cleaning of texts from senders. Each gives its own result back unchanged. Names and labels throw
// InvalidEncoding when they are not UTF-8 or do not compose (toNFC).

// A file name: NFC, without control characters (category Cc), "/" and "\", white space at the ends, dots at
// the end; at most 255 bytes, cut before the extension; "file" when nothing is left.
std::string sanitizeName(std::string_view name);

// type "/" subtype of at most 127 token characters (RFC 9110), ASCII letters in lower case; for anything else
// "application/octet-stream".
std::string sanitizeMime(std::string_view mime);

// NFC, without control characters and white space at the ends; at most labelMax characters.
std::string sanitizeLabel(std::string_view label);

// Both, and a modification time only in the form yyyy-MM-ddTHH:mm:ssZ, with up to three decimals.
FileMeta sanitizeMeta(const FileMeta& meta);

} // namespace KRCrypto::DropCrypto
