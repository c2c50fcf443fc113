#include "KRCrypto/AccountKeys.hpp"
#include "KRCrypto/ChunkDecryptor.hpp"
#include "KRCrypto/DropCrypto.hpp"
#include "KRCrypto/LinkKey.hpp"
#include "KRCrypto/PairingCrypto.hpp"
#include "KRCrypto/RecoveryCode.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/json/SecretText.hpp"
#include "tests/KRCrypto/Vectors.hpp"

#include <gtest/gtest.h>
#include <malloc.h>
#include <openssl/crypto.h>

#include <array>
#include <concepts>
#include <cstdlib>
#include <functional>
#include <new>
#include <ostream>
#include <utility>

// Looks into every block of memory that the program or OpenSSL gives back for the bytes of a secret.
namespace {

std::array<std::uint8_t, 16> needle{};
bool searching = false;
int found = 0;

void search(void* block) {
    if (searching && block != nullptr &&
        memmem(block, malloc_usable_size(block), needle.data(), needle.size()) != nullptr) {
        ++found;
    }
}

void* allocate(std::size_t size) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void release(void* block) noexcept {
    search(block);
    std::free(block);
}

void* libraryAllocate(std::size_t size, const char*, int) {
    return std::malloc(size);
}

void* libraryReallocate(void* block, std::size_t size, const char*, int) {
    search(block);
    return std::realloc(block, size);
}

void libraryRelease(void* block, const char*, int) {
    release(block);
}

const int hooked = CRYPTO_set_mem_functions(libraryAllocate, libraryReallocate, libraryRelease);

} // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    void* block = std::aligned_alloc(static_cast<std::size_t>(alignment), (size + 63) / 64 * 64);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void* block) noexcept {
    release(block);
}

void operator delete(void* block, std::size_t) noexcept {
    release(block);
}

void operator delete(void* block, std::align_val_t) noexcept {
    release(block);
}

void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    release(block);
}

namespace KRCrypto::Tests {
namespace {

using Record = std::map<std::string, Korvane::SecretText>;

template <class T>
concept Printable = requires(std::ostream& out, const T& value) { out << value; };

static_assert(Printable<std::string> && !Printable<SecretBytes>);
static_assert(!std::convertible_to<SecretBytes, std::string>);
static_assert(!std::convertible_to<SecretBytes, std::string_view>);
static_assert(!std::convertible_to<SecretBytes, Bytes>);

// Blocks given back with the start of the secret in them while the call runs.
int leaksOf(ByteView secret, const std::function<void()>& call) {
    std::ranges::copy(secret.first(needle.size()), needle.begin());
    found = 0;
    searching = true;
    call();
    searching = false;
    return found;
}

TEST(WipedMemory, TheSearchFindsWhatIsNotWiped) {
    ASSERT_EQ(hooked, 1);
    const Bytes secret(32, 0x5C);
    EXPECT_GT(leaksOf(secret, [&] { Bytes(secret.begin(), secret.end()); }), 0);
    EXPECT_GT(leaksOf(secret, [&] { OPENSSL_free(OPENSSL_memdup(secret.data(), secret.size())); }), 0);
}

TEST(WipedMemory, SecretBytesLeaveNothingBehind) {
    const Bytes secret(48, 0x5C);
    const SecretBytes other = SecretBytes::copyOf("other");
    EXPECT_EQ(leaksOf(secret, [&] { SecretBytes::copyOf(secret); }), 0);
    EXPECT_EQ(leaksOf(secret, [&] { SecretBytes::copyOf(secret) = other; }), 0);
    EXPECT_EQ(leaksOf(secret, [&] { SecretBytes::copyOf(secret) = SecretBytes(); }), 0);
    EXPECT_EQ(leaksOf(secret, [&] { SecretBytes::copyOf(secret).resize(1); }), 0);
    EXPECT_EQ(leaksOf(secret, [&] { SecretBytes::copyOf(secret).resize(500); }), 0);

    SecretBytes moved = SecretBytes::copyOf(secret);
    SecretBytes target = std::move(moved);
    EXPECT_TRUE(moved.empty()); // NOLINT(bugprone-use-after-move): that is the point
    target.resize(50);
    EXPECT_EQ(target.view().size(), 50U);
    EXPECT_EQ(target.view()[47], 0x5C);
    EXPECT_EQ(target.view()[48], 0);
    EXPECT_FALSE(target == SecretBytes::copyOf(secret));
}

TEST(WipedMemory, OperationsLeaveNoKeysBehind) {
    const auto account = vectors("golden/account");
    const auto sharing = vectors("golden/sharing");
    const auto devices = vectors("golden/devices").at("pairing");
    const auto& drop = sharing.at("drop");
    const auto& link = sharing.at("link");
    const Bytes mk = bytes(account, "masterKey");
    const Bytes wrapped = bytes(account, "wrappedMasterKey");
    const Bytes kek = bytes(account, "kek");
    const Bytes salt = bytes(account, "kdfSalt");
    const Bytes fk = bytes(drop, "fileKey");
    const std::string code = text(account, "recoveryCode");
    const std::string fragment = text(link, "fragment");
    const std::string password = text(account, "password");
    const std::string token(40, 'T');
    const MasterKey key = MasterKey::fromBytes(mk);
    const Bytes sealedLink = DropCrypto::sealLink(key, {1, SecretBytes::copyOf(token), "label", "folder"});
    const Bytes chunk(16);
    const Argon2Params params{256, 2, 2, 32};

    const Record record{{"a", {token}}, {"b", {std::string(5000, 'x')}}};
    const auto json = Korvane::KRJSON::write(record);

    const std::tuple<std::string_view, Bytes, std::function<void()>> table[] = {
        {"unwrapping, the master key", mk, [&] { MasterKey::unwrapWithKek(kek, wrapped); }},
        {"unwrapping, the wrapping key", kek, [&] { MasterKey::unwrapWithKek(kek, wrapped); }},
        {"sealing, the key", mk, [&] { seal(mk, kek, "x"); }},
        {"failing to open, the key", mk, [&] { failureOf([&] { return open(mk, wrapped, "x"); }); }},
        {"keeping a sealing key", mk, [&] { SealingKey(mk).seal(kek, "x"); }},
        {"copying a master key", mk,
         [&] {
             MasterKey copy(key);
             copy = MasterKey::generate();
         }},
        {"deriving, the key", kek, [&] { deriveFromPassword(password, salt, params); }},
        {"deriving, the password", copyOf(password), [&] { deriveFromPassword(password, salt, params); }},
        {"formatting a recovery code", copyOf(code), [&] { formatRecoveryCode(parseRecoveryCode(code)); }},
        {"parsing a recovery code", bytes(account, "recoverySecret"), [&] { parseRecoveryCode(code); }},
        {"names and contents, the blind key", copyOf(key.blindKey()), [&] { key.nameBlindIndex("name"); }},
        {"a decryptor's file key", fk,
         [&] { failureOf([&] { return ChunkDecryptor(fk, 1).decrypt(0, chunk); }); }},
        {"unwrapping a file key", fk, [&] { key.unwrapFileKey(key.wrapFileKey(fk)); }},
        {"a link's key", bytes(link, "key"),
         [&] { LinkKey::fromFragment(fragment).entryKey("p", salt, params); }},
        {"a link's password, what Argon2 makes of it", copyOf(argon2id("p", salt, params)),
         [&] { LinkKey::fromFragment(fragment).entryKey("p", salt, params); }},
        {"a link's fragment", copyOf(fragment), [&] { LinkKey::fromFragment(fragment).fragment(); }},
        {"a drop's private key", bytes(drop, "owner"),
         [&] { DropCrypto::openKeyPair(key, bytes(drop, "wrappedPrivateKey"), bytes(drop, "ownerPublic")); }},
        {"a drop's token, opening", copyOf(token), [&] { DropCrypto::openLink(key, sealedLink); }},
        {"a drop's token, sealing", copyOf(token),
         [&] { DropCrypto::sealLink(key, {1, SecretBytes::copyOf(token), "label", "folder"}); }},
        {"a drop's token, failing to seal", copyOf(token),
         [&] {
             failureOf([&] {
                 return DropCrypto::sealLink(key, {1, SecretBytes::copyOf(token), "\xff", "folder"});
             });
         }},
        {"a token in a record, writing", copyOf(token),
         [&] {
             auto text = Korvane::KRJSON::write(record);
             wipe(text);
         }},
        {"a token in a record, reading", copyOf(token), [&] { (void)Korvane::KRJSON::read<Record>(json); }},
        {"pairing, the master key", mk,
         [&] {
             PairingCrypto::pairOpen(SecretBytes::copyOf(bytes(devices, "device")),
                                     bytes(devices, "approverPublic"), bytes(devices, "devicePublic"),
                                     bytes(devices, "sealed"));
         }},
        {"pairing, the pairing key", bytes(devices, "pairKey"),
         [&] {
             PairingCrypto::pairSeal(bytes(devices, "approver"), bytes(devices, "approverPublic"),
                                     bytes(devices, "devicePublic"), key);
         }},
    };
    for (const auto& [what, secret, call] : table) {
        EXPECT_EQ(leaksOf(secret, call), 0) << what;
    }
}

} // namespace
} // namespace KRCrypto::Tests
