#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/DropCrypto.hpp"
#include "KRCrypto/LinkKey.hpp"
#include "KRCrypto/MetaJSON.hpp"
#include "KRCrypto/PairingCrypto.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "tests/KRCrypto/Vectors.hpp"

#include <gtest/gtest.h>

#include <functional>

namespace KRCrypto::Tests {
namespace {

struct Kind {
    std::string_view name;
    Bytes sealed;
    std::function<void(ByteView)> open;
};

const FileMeta fileMeta("n", "a/b", 1, std::string(64, 'a'));
const Bytes fileKey(32, 3);

// One box of every kind, as far as possible under the same key, so that only labels keep them apart.
std::vector<Kind> everyKind() {
    const MasterKey mk = goldenKey();
    const Bytes key = copyOf(mk.bytes());
    const auto owner = PairingKeyPair::fromPrivateKeyBytes(key);
    const auto peer = PairingKeyPair::generate();
    const SecretBytes dropKey =
        DropCrypto::dropKey(key, peer.publicKey(), peer.publicKey(), owner.publicKey());
    const Bytes wrapped = seal(dropKey, fileKey, CryptoContext::dropWrap);
    const Bytes meta = seal(dropKey, MetaJSON::encode(fileMeta), CryptoContext::dropMeta);
    return {
        {"master key", mk.wrapWithKek(key), [=](ByteView b) { MasterKey::unwrapWithKek(key, b); }},
        {"master key for recovery", mk.wrapWithRecovery(key),
         [=](ByteView b) { MasterKey::unwrapWithRecovery(key, b); }},
        {"file key", mk.wrapFileKey(fileKey), [=](ByteView b) { mk.unwrapFileKey(b); }},
        {"metadata", mk.sealMeta(fileMeta), [=](ByteView b) { mk.openMeta(b); }},
        {"thumbnail", ChunkCrypto::sealThumbnail(key, key),
         [=](ByteView b) { ChunkCrypto::openThumbnail(key, b); }},
        {"app data", mk.sealAppData("a", key), [=](ByteView b) { mk.openAppData("a", b); }},
        {"Quick Send item", mk.sealQuickSend({"t", QuickSendPayload::Text{"x"}}),
         [=](ByteView b) { mk.openQuickSend(b); }},
        {"pairing payload", PairingCrypto::pairSeal(key, owner.publicKey(), peer.publicKey(), mk),
         [=](ByteView b) {
             PairingCrypto::pairOpen(peer.privateKey(), owner.publicKey(), peer.publicKey(), b);
         }},
        {"link's file key", wrapLinkKey(key, fileKey), [=](ByteView b) { unwrapLinkKey(key, b); }},
        {"link's metadata", sealLinkMeta(key, fileMeta), [=](ByteView b) { openLinkMeta(key, b); }},
        {"drop's private key", DropCrypto::wrapPrivateKey(mk, key),
         [=](ByteView b) { DropCrypto::openKeyPair(mk, b, owner.publicKey()); }},
        {"drop's link record", DropCrypto::sealLink(mk, {1, SecretBytes::copyOf("t"), "l", "f"}),
         [=](ByteView b) { DropCrypto::openLink(mk, b); }},
        {"dropped file key", wrapped,
         [=](ByteView b) { DropCrypto::openItem(owner, peer.publicKey(), b, meta); }},
        {"dropped metadata", meta,
         [=](ByteView b) { DropCrypto::openItem(owner, peer.publicKey(), wrapped, b); }},
    };
}

std::string failureOfOpening(const Kind& kind, ByteView sealed) {
    return failureOf([&] {
        kind.open(sealed);
        return 0;
    });
}

TEST(EveryBox, OpensAsWhatItIsAndAsNothingElse) {
    const auto kinds = everyKind();
    for (const Kind& box : kinds) {
        for (const Kind& opener : kinds) {
            EXPECT_EQ(failureOfOpening(opener, box.sealed), &box == &opener ? "" : authenticationFailed)
                << box.name << " as " << opener.name;
        }
    }
}

TEST(EveryBox, TellsWhenAByteIsChangedOrMissing) {
    for (const Kind& kind : everyKind()) {
        for (std::size_t at = 0; at < kind.sealed.size(); ++at) {
            EXPECT_EQ(failureOfOpening(kind, flipped(kind.sealed, at)),
                      at == 0 ? "Unsupported sealed-box version 0" : authenticationFailed)
                << kind.name << ", byte " << at;
            EXPECT_EQ(failureOfOpening(kind, ByteView(kind.sealed).first(at)),
                      at < 29 ? "Malformed sealed box" : authenticationFailed)
                << kind.name << ", cut to " << at;
        }
    }
}

// A key of another length under the right key and label.
TEST(EveryBox, OfAKeyHoldsThirtyTwoBytes) {
    const MasterKey mk = goldenKey();
    const SecretBytes& key = mk.bytes();
    const std::pair<std::string_view, std::function<void(ByteView)>> table[] = {
        {CryptoContext::mkWrap, [&](ByteView b) { MasterKey::unwrapWithKek(key, b); }},
        {CryptoContext::mkRecoveryWrap, [&](ByteView b) { MasterKey::unwrapWithRecovery(key, b); }},
        {CryptoContext::fkWrap, [&](ByteView b) { mk.unwrapFileKey(b); }},
        {CryptoContext::linkWrap, [&](ByteView b) { unwrapLinkKey(key, b); }},
        {CryptoContext::dropPrivate, [&](ByteView b) { DropCrypto::openKeyPair(mk, b, Bytes(32)); }},
    };
    for (const auto& [label, open] : table) {
        const Kind kind{label, seal(key, Bytes(31), label), open};
        EXPECT_EQ(failureOfOpening(kind, kind.sealed), "Invalid key length 31") << label;
    }
    EXPECT_EQ(failureOf([&] { return mk.wrapFileKey(Bytes(31)); }), "Invalid key length 31");
    EXPECT_EQ(failureOf([&] { return wrapLinkKey(key, Bytes(31)); }), "Invalid key length 31");
    EXPECT_EQ(failureOf([&] { return DropCrypto::wrapPrivateKey(mk, Bytes(31)); }), "Invalid key length 31");
}

} // namespace
} // namespace KRCrypto::Tests
