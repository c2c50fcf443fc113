#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/DropCrypto.hpp"
#include "KRCrypto/LinkKey.hpp"
#include "KRCrypto/MetaJSON.hpp"
#include "KRCrypto/PairingCrypto.hpp"
#include "KRCrypto/QuickSendJSON.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "tests/KRCrypto/Vectors.hpp"

#include <gtest/gtest.h>

#include <map>

namespace KRCrypto::Tests {
namespace {

using namespace PairingCrypto;
using Payload = QuickSendPayload;

TEST(Pairing, GoldenExchangeAgreesOnBothSidesOfThisAttemptOnly) {
    const auto v = vectors("golden/devices").at("pairing");
    const auto approver = PairingKeyPair::fromPrivateKeyBytes(bytes(v, "approver"));
    const auto device = PairingKeyPair::fromPrivateKeyBytes(bytes(v, "device"));
    EXPECT_EQ(approver.publicKey(), bytes(v, "approverPublic"));
    EXPECT_EQ(device.publicKey(), bytes(v, "devicePublic"));
    const auto keyOf = [&](const PairingKeyPair& me, const PairingKeyPair& them) {
        return pairKey(me.privateKey(), them.publicKey(), approver.publicKey(), device.publicKey());
    };
    EXPECT_EQ(keyOf(approver, device), secret(v, "pairKey"));
    EXPECT_EQ(keyOf(device, approver), secret(v, "pairKey"));

    const auto openAs = [&](const PairingKeyPair& me) {
        return pairOpen(me.privateKey(), approver.publicKey(), me.publicKey(), bytes(v, "sealed"));
    };
    EXPECT_EQ(openAs(device), goldenKey());
    EXPECT_EQ(failureOf([&] { return openAs(PairingKeyPair::generate()); }), authenticationFailed);
}

TEST(Pairing, RefusesKeysOfAnotherLength) {
    const auto me = PairingKeyPair::generate();
    const MasterKey mk = goldenKey();
    for (const std::size_t size : {0U, 31U, 33U}) {
        const Bytes bad(size);
        const std::string length = "Invalid key length " + std::to_string(size);
        EXPECT_EQ(failureOf([&] { return pairSeal(me.privateKey(), me.publicKey(), bad, mk); }),
                  invalidPublicKey);
        EXPECT_EQ(failureOf([&] { return pairSeal(me.privateKey(), bad, me.publicKey(), mk); }),
                  invalidPublicKey);
        EXPECT_EQ(failureOf([&] { return pairSeal(bad, me.publicKey(), me.publicKey(), mk); }), length);
        EXPECT_EQ(failureOf([&] { return PairingKeyPair::fromPrivateKeyBytes(bad); }), length);
    }
}

TEST(Pairing, CodesHaveSixteenDigits) {
    for (const auto& v : rows("golden/devices", "digits")) {
        EXPECT_EQ(pairingDigits(bytes(v, "data")), text(v, "digits"));
        EXPECT_EQ(text(v, "digits").size(), 16U);
    }
}

Payload::Content contentOf(const Value& v) {
    if (text(v, "kind") == "text") {
        return Payload::Text{text(v, "text")};
    }
    if (text(v, "kind") == "link") {
        return Payload::Link{text(v, "url")};
    }
    return Payload::File{text(v, "fileId"), text(v, "name"), text(v, "mime"), number(v, "size")};
}

TEST(QuickSend, MatchesTheGoldenItems) {
    const MasterKey mk = goldenKey();
    for (const auto& v : rows("golden/devices", "items")) {
        const Payload payload{text(v, "sentAt"), contentOf(v.at("item"))};
        EXPECT_EQ(asText(QuickSendJSON::encode(payload)), text(v, "json"));
        EXPECT_EQ(mk.openQuickSend(bytes(v, "sealed")), payload);
        EXPECT_EQ(mk.openQuickSend(mk.sealQuickSend(payload)), payload);
    }
}

TEST(QuickSend, TakesItemsUpToTheLimit) {
    const MasterKey mk = goldenKey();
    const std::size_t overhead = mk.sealQuickSend({"t", Payload::Text{}}).size();
    const Payload fits{"t", Payload::Text{std::string(65536 - overhead, 'x')}};
    const Payload tooLarge{"t", Payload::Text{std::string(65537 - overhead, 'x')}};
    EXPECT_EQ(mk.openQuickSend(mk.sealQuickSend(fits)), fits);
    EXPECT_EQ(failureOf([&] { return mk.sealQuickSend(tooLarge); }), "Quick Send item is too large");
    EXPECT_EQ(failureOf([&] { return mk.sealQuickSend({"t", Payload::Text{"\xff"}}); }), invalidEncoding);
    EXPECT_EQ(failureOf([&] { return mk.openQuickSend(Bytes(262144 + 30, 1)); }), invalidMeta);
}

TEST(QuickSend, RefusesRecordsItDoesNotKnow) {
    for (const auto& v : rows("cases/quick-send")) {
        EXPECT_EQ(failureOf([&] { return QuickSendJSON::decode(asBytes(text(v, "json"))); }),
                  flag(v, "valid") ? "" : invalidMeta)
            << text(v, "json");
    }
}

TEST(QuickSend, TellsLinksFromTexts) {
    for (const auto& v : rows("cases/quick-send-texts")) {
        const std::string kept = text(v, "kept");
        const bool link = flag(v, "link");
        const auto expected = link ? Payload::Content(Payload::Link{kept}) : Payload::Text{kept};
        EXPECT_EQ(Payload::fromText(text(v, "text"), "t").content, expected) << text(v, "text");
        EXPECT_EQ(isOpenableQuickSendLink(kept), link) << kept;
    }
    EXPECT_FALSE(isOpenableQuickSendLink("http://x "));
    EXPECT_FALSE(isOpenableQuickSendLink("http://\xff"));
    EXPECT_EQ(failureOf([] { return Payload::fromText("http://\xff", "t"); }), invalidEncoding);
}

TEST(Links, GoldenLinkOpensWithItsPassword) {
    const auto v = vectors("golden/sharing").at("link");
    const LinkKey link = LinkKey::fromFragment(text(v, "fragment"));
    EXPECT_EQ(link.bytes(), secret(v, "key"));
    EXPECT_EQ(link.fragment().text(), text(v, "fragment"));
    EXPECT_EQ(link.entryKey({}, {}, {}), link.bytes());
    const Bytes salt = bytes(v, "passwordSalt");
    const Bytes wrapped = bytes(v, "wrapped");
    const SecretBytes key = link.entryKey(text(v, "password"), salt, paramsOf(v.at("params")));
    EXPECT_EQ(key, secret(v, "entryKey"));
    EXPECT_EQ(unwrapLinkKey(key, wrapped), secret(v, "fileKey"));
    EXPECT_EQ(openLinkMeta(key, bytes(v, "meta")), FolderMeta(text(v, "metaName")));

    const SecretBytes wrong = link.entryKey("geheim", salt, paramsOf(v.at("params")));
    EXPECT_EQ(failureOf([&] { return unwrapLinkKey(wrong, wrapped); }), authenticationFailed);
    EXPECT_EQ(failureOf([&] { return unwrapLinkKey(link.bytes(), wrapped); }), authenticationFailed);
    FolderMeta future("x");
    future.v = 2;
    EXPECT_EQ(failureOf([&] { return openLinkMeta(key, sealLinkMeta(key, future)); }), invalidMeta);
}

TEST(Links, PasswordAndSaltComeTogetherAndWithinBounds) {
    const LinkKey link = LinkKey::generate();
    const Bytes salt(16);
    const std::pair<std::optional<std::string_view>, std::optional<ByteView>> table[] = {
        {"p", {}}, {{}, salt}, {"", salt}, {"p", ByteView()}, {"", ByteView()}, {"", {}}, {{}, ByteView()}};
    for (const auto& [password, rowSalt] : table) {
        EXPECT_EQ(failureOf([&] { return link.entryKey(password, rowSalt, {}); }),
                  "A link password and its salt must both be present (and non-empty)");
    }
    const Argon2Params costly{4194305, 3, 1, 32};
    const std::string_view tooCostly = "Argon2 error -15: Memory cost is too large";
    EXPECT_EQ(failureOf([&] { return link.entryKey("p", salt, costly); }), tooCostly);
    EXPECT_EQ(failureOf([&] { return DropCrypto::derivePasswordKey("p", salt, costly); }), tooCostly);
    EXPECT_EQ(failureOf([&] { return DropCrypto::derivePasswordKey("", salt, {8, 1, 1, 32}); }), "");
}

TEST(Links, FragmentsDecodeToThirtyTwoBytesOrNotAtAll) {
    const std::string start(42, '_');
    for (const std::string& fine : {start + "8", start + "8=", std::string(42, '/') + "8"}) {
        EXPECT_EQ(LinkKey::fromFragment(fine).bytes(), SecretBytes::copyOf(Bytes(32, 0xFF))) << fine;
    }
    for (const std::string& bad :
         {std::string(), start, start + "88", start + "!", start + " 8", start + "8==", "#" + start + "8",
          start + '\0', std::string(44, '_'), std::string(1000000, 'A')}) {
        EXPECT_EQ(failureOf([&] { return LinkKey::fromFragment(bad); }), "Invalid link key fragment");
    }
}

TEST(Drops, GoldenItemOpensForItsOwnerOnly) {
    const auto v = vectors("golden/sharing").at("drop");
    const auto owner =
        DropCrypto::openKeyPair(goldenKey(), bytes(v, "wrappedPrivateKey"), bytes(v, "ownerPublic"));
    EXPECT_EQ(owner.privateKey(), secret(v, "owner"));
    const Bytes sender = bytes(v, "senderPublic");
    const Bytes wrapped = bytes(v, "wrappedFileKey");
    const Bytes meta = bytes(v, "metaEnc");
    const SecretBytes key = secret(v, "dropKey");
    EXPECT_EQ(DropCrypto::dropKey(bytes(v, "sender"), owner.publicKey(), sender, owner.publicKey()), key);

    const auto item = DropCrypto::openItem(owner, sender, wrapped, meta);
    EXPECT_EQ(item.fileKey, secret(v, "fileKey"));
    EXPECT_EQ(item.meta.name, text(v, "cleanName"));
    EXPECT_EQ(item.meta.mime, text(v, "cleanMime"));
    EXPECT_FALSE(item.meta.mtime);

    const auto failure = [&](const PairingKeyPair& pair, ByteView pub, ByteView fk, ByteView box) {
        return failureOf([&] { return DropCrypto::openItem(pair, pub, fk, box); });
    };
    EXPECT_EQ(failure(PairingKeyPair::generate(), sender, wrapped, meta), authenticationFailed);
    for (std::size_t at = 0; at < 32; ++at) {
        EXPECT_EQ(failure(owner, flipped(sender, at), wrapped, meta), authenticationFailed);
    }
    for (const std::size_t size : {0U, 31U, 32U, 33U}) { // 32 zero bytes are a point of low order
        EXPECT_EQ(failure(owner, Bytes(size), wrapped, meta), invalidPublicKey);
    }
    const Bytes folder = seal(key, MetaJSON::encode(FolderMeta("x")), CryptoContext::dropMeta);
    EXPECT_EQ(failure(owner, sender, wrapped, folder), invalidMeta);
    EXPECT_EQ(failure(owner, sender, wrapped, Bytes(262144 + 30, 1)), invalidMeta);
    EXPECT_EQ(failure(owner, sender, seal(key, Bytes(16), CryptoContext::dropWrap), meta),
              "Invalid key length 16");
}

TEST(Drops, OwnersRecordsMatchTheGoldenOnes) {
    const auto v = vectors("golden/sharing").at("drop");
    const MasterKey mk = goldenKey();
    EXPECT_EQ(DropCrypto::fingerprint(bytes(v, "ownerPublic")), text(v, "fingerprint"));
    EXPECT_EQ(DropCrypto::fragment(bytes(v, "ownerPublic"), text(v, "label")), text(v, "fragment"));
    EXPECT_EQ(DropCrypto::fragment(Bytes(32), " \u0085 "), std::string(43, 'A'));
    EXPECT_EQ(failureOf([] { return DropCrypto::fingerprint(Bytes(31)); }), invalidPublicKey);
    EXPECT_EQ(failureOf([] { return DropCrypto::fragment(Bytes(33), ""); }), invalidPublicKey);
    EXPECT_EQ(DropCrypto::derivePasswordKey(text(v, "password"), bytes(v, "passwordSalt"),
                                            paramsOf(v.at("params"))),
              secret(v, "passwordKey"));
    const Bytes wrapped = bytes(v, "wrappedPrivateKey");
    EXPECT_EQ(failureOf([&] { return DropCrypto::openKeyPair(mk, wrapped, bytes(v, "senderPublic")); }),
              invalidPublicKey);
    EXPECT_TRUE(DropCrypto::isReceivedBlob("drop_1"));
    EXPECT_FALSE(DropCrypto::isReceivedBlob("drop1"));

    const auto& l = v.at("linkSecret");
    const DropCrypto::LinkSecret link{1, SecretBytes::copyOf(text(l, "token")), text(l, "label"),
                                      text(l, "folderId")};
    EXPECT_EQ(DropCrypto::openLink(mk, bytes(v, "sealedLink")), link);
    EXPECT_EQ(open(mk.bytes(), DropCrypto::sealLink(mk, link), CryptoContext::dropLink),
              open(mk.bytes(), bytes(v, "sealedLink"), CryptoContext::dropLink));
    for (const std::string_view broken :
         {R"({"v":1,"token":1,"label":"","folderId":""})", R"({"v":1,"token":"","folderId":""})",
          R"({"v":2,"token":"","label":"","folderId":""})",
          R"({"v":0,"token":"","label":"","folderId":""})"}) {
        const Bytes sealed = seal(mk.bytes(), asBytes(broken), CryptoContext::dropLink);
        EXPECT_EQ(failureOf([&] { return DropCrypto::openLink(mk, sealed); }), invalidMeta) << broken;
    }
}

TEST(Drops, TextsOfSendersAreCleaned) {
    const std::map<std::string, std::string (*)(std::string_view)> cleaners{
        {"name", DropCrypto::sanitizeName},
        {"mime", DropCrypto::sanitizeMime},
        {"label", DropCrypto::sanitizeLabel}};
    for (const auto& v : rows("cases/drop-texts")) {
        const auto clean = cleaners.at(text(v, "what"));
        const std::string given = text(v, "text");
        const std::string shown = given.substr(0, 100);
        if (v.at("clean").is_null()) {
            EXPECT_EQ(failureOf([&] { return clean(given); }), invalidEncoding) << shown;
            continue;
        }
        EXPECT_EQ(clean(given), text(v, "clean")) << shown;
        EXPECT_EQ(clean(text(v, "clean")), text(v, "clean")) << shown;
    }
    for (const auto& v : rows("cases/drop-times")) {
        const FileMeta meta("n", "a/b", 1, "", text(v, "time"));
        EXPECT_EQ(DropCrypto::sanitizeMeta(meta).mtime.has_value(), flag(v, "kept")) << text(v, "time");
    }
}

} // namespace
} // namespace KRCrypto::Tests
