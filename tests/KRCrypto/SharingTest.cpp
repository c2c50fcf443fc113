#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/DropCrypto.hpp"
#include "KRCrypto/LinkKey.hpp"
#include "KRCrypto/MetaJSON.hpp"
#include "KRCrypto/PairingCrypto.hpp"
#include "KRCrypto/QuickSendJSON.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "tests/KRCrypto/Vectors.hpp"

#include <gtest/gtest.h>

#include <functional>

namespace KRCrypto::Tests {
namespace {

using namespace PairingCrypto;
using Payload = QuickSendPayload;

MasterKey goldenKey() {
    return MasterKey::fromBytes(bytes(vectors("golden/account"), "masterKey"));
}

SecretBytes secret(const boost::json::value& record, std::string_view key) {
    return SecretBytes::copyOf(bytes(record, key));
}

PairingKeyPair pairOf(const boost::json::value& record, std::string_view key) {
    return PairingKeyPair::fromPrivateKeyBytes(bytes(record, key));
}

Argon2Params paramsOf(const boost::json::value& record) {
    const auto& v = record.at("params");
    return {number(v, "memoryKib"), number(v, "iterations"), number(v, "parallelism"),
            number(v, "outputLength")};
}

TEST(Pairing, GoldenExchangeAgreesOnBothSides) {
    const auto v = vectors("golden/devices").at("pairing");
    const auto approver = pairOf(v, "approver");
    const auto device = pairOf(v, "device");
    EXPECT_EQ(approver.publicKey(), bytes(v, "approverPublic"));
    EXPECT_EQ(device.publicKey(), bytes(v, "devicePublic"));
    const auto keyOf = [&](const PairingKeyPair& me, const PairingKeyPair& them) {
        return pairKey(me.privateKey(), them.publicKey(), approver.publicKey(), device.publicKey());
    };
    EXPECT_EQ(keyOf(approver, device), secret(v, "pairKey"));
    EXPECT_EQ(keyOf(device, approver), secret(v, "pairKey"));
    EXPECT_EQ(pairOpen(device.privateKey(), approver.publicKey(), device.publicKey(), bytes(v, "sealed")),
              goldenKey());
}

TEST(Pairing, HandsTheMasterKeyToThisAttemptOnly) {
    const auto approver = PairingKeyPair::generate();
    const auto device = PairingKeyPair::generate();
    const auto earlier = PairingKeyPair::generate();
    const MasterKey mk = MasterKey::generate();
    const Bytes sealed = pairSeal(approver.privateKey(), approver.publicKey(), device.publicKey(), mk);
    const auto openAs = [&](const PairingKeyPair& me, ByteView box) {
        return pairOpen(me.privateKey(), approver.publicKey(), me.publicKey(), box);
    };
    EXPECT_EQ(sealed.size(), 61U);
    EXPECT_EQ(openAs(device, sealed), mk);
    EXPECT_EQ(failureOf([&] { return openAs(earlier, sealed); }), authenticationFailed);
    EXPECT_EQ(firstUnnoticedFlip(sealed, [&](ByteView box) { return openAs(device, box); }), "");
    for (const std::size_t size : {0U, 31U, 33U}) {
        EXPECT_EQ(
            failureOf([&] { return pairSeal(approver.privateKey(), approver.publicKey(), Bytes(size), mk); }),
            "Invalid public key");
        EXPECT_EQ(
            failureOf([&] { return pairSeal(approver.privateKey(), Bytes(size), device.publicKey(), mk); }),
            "Invalid public key");
        EXPECT_EQ(failureOf([&] { return PairingKeyPair::fromPrivateKeyBytes(Bytes(size)); }),
                  "Invalid key length " + std::to_string(size));
    }
}

TEST(Pairing, CodesHaveSixteenDigits) {
    for (const auto& v : rows("golden/devices", "digits")) {
        EXPECT_EQ(pairingDigits(bytes(v, "data")), text(v, "digits"));
        EXPECT_EQ(text(v, "digits").size(), 16U);
    }
}

Payload::Content contentOf(const boost::json::value& v) {
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
    EXPECT_EQ(mk.sealQuickSend(fits).size(), 65536U);
    EXPECT_EQ(failureOf([&] { return mk.sealQuickSend(tooLarge); }), "Quick Send item is too large");
    EXPECT_EQ(failureOf([&] { return mk.sealQuickSend({"t", Payload::Text{"\xff"}}); }), "Invalid encoding");
}

TEST(QuickSend, RefusesRecordsItDoesNotKnow) {
    const std::pair<std::string_view, bool> table[] = {
        {R"({"sentAt":"","text":"","kind":"text","v":1,"more":[]})", true},
        {R"({"v":2,"kind":"text","text":"","sentAt":""})", false},
        {R"({"kind":"text","text":"","sentAt":""})", false},
        {R"({"v":1,"kind":"Text","text":"","sentAt":""})", false},
        {R"({"v":1,"kind":"link","text":"","sentAt":""})", false},
        {R"({"v":1,"kind":"text","text":""})", false},
        {R"({"v":1,"kind":"file","fileId":"","name":"","mime":"","size":9223372036854775808,"sentAt":""})",
         false},
        {"", false},
    };
    for (const auto& [json, fine] : table) {
        EXPECT_EQ(failureOf([&] { return QuickSendJSON::decode(asBytes(json)); }),
                  fine ? "" : "Invalid metadata")
            << json;
    }
}

TEST(QuickSend, TellsLinksFromTexts) {
    const std::tuple<std::string_view, std::string_view, bool> table[] = {
        {" https://example.org \n", "https://example.org", true},
        {"HTTP://x", "HTTP://x", true},
        {"http://", "http://", false},
        {"https:/x", "https:/x", false},
        {"http://a b", "http://a b", false},
        {"http://a\u00a0b", "http://a\u00a0b", false},
        {"http://a\x01", "http://a\x01", false},
        {"see http://x", "see http://x", false},
        {"ftp://x", "ftp://x", false},
        {"\u2003\u3000", "", false},
        {"", "", false},
        {"http://é", "http://é", true},
    };
    for (const auto& [text, kept, link] : table) {
        const Payload payload = Payload::fromText(text, "t");
        const auto expected =
            link ? Payload::Content(Payload::Link{std::string(kept)}) : Payload::Text{std::string(kept)};
        EXPECT_EQ(payload.content, expected) << text;
    }
}

TEST(Links, GoldenLinkOpensWithItsPassword) {
    const auto v = vectors("golden/sharing").at("link");
    const LinkKey link = LinkKey::fromFragment(text(v, "fragment"));
    EXPECT_EQ(link.bytes(), secret(v, "key"));
    EXPECT_EQ(link.fragment().text(), text(v, "fragment"));
    EXPECT_EQ(link.entryKey({}, {}, {}), link.bytes());
    const Bytes salt = bytes(v, "passwordSalt");
    const SecretBytes key = link.entryKey(text(v, "password"), salt, paramsOf(v));
    EXPECT_EQ(key, secret(v, "entryKey"));
    EXPECT_EQ(unwrapLinkKey(key, bytes(v, "wrapped")), secret(v, "fileKey"));
    EXPECT_EQ(openLinkMeta(key, bytes(v, "meta")), FolderMeta(text(v, "metaName")));

    const SecretBytes wrong = link.entryKey("geheim", salt, paramsOf(v));
    EXPECT_EQ(failureOf([&] { return unwrapLinkKey(wrong, bytes(v, "wrapped")); }), authenticationFailed);
    EXPECT_EQ(failureOf([&] { return unwrapLinkKey(link.bytes(), bytes(v, "wrapped")); }),
              authenticationFailed);
    EXPECT_EQ(firstUnnoticedFlip(bytes(v, "wrapped"), [&](ByteView b) { return unwrapLinkKey(key, b); }), "");
    EXPECT_EQ(firstUnnoticedFlip(bytes(v, "meta"), [&](ByteView b) { return openLinkMeta(key, b); }), "");
    EXPECT_EQ(unwrapLinkKey(key, wrapLinkKey(key, Bytes(32))), SecretBytes(32));
    EXPECT_EQ(failureOf([&] { return unwrapLinkKey(key, seal(key, {}, CryptoContext::linkWrap)); }),
              "Invalid key length 0");
    FolderMeta future("x");
    future.v = 2;
    EXPECT_EQ(failureOf([&] { return openLinkMeta(key, sealLinkMeta(key, future)); }), "Invalid metadata");
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
    EXPECT_TRUE(failureOf([&] {
                    return link.entryKey("p", salt, {4194305, 3, 1, 32});
                }).starts_with("Argon2 error -15: "));
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
    const MasterKey mk = goldenKey();
    const auto owner = DropCrypto::openKeyPair(mk, bytes(v, "wrappedPrivateKey"), bytes(v, "ownerPublic"));
    EXPECT_EQ(owner.privateKey(), secret(v, "owner"));
    const Bytes sender = bytes(v, "senderPublic");
    const Bytes wrapped = bytes(v, "wrappedFileKey");
    const Bytes meta = bytes(v, "metaEnc");
    EXPECT_EQ(DropCrypto::dropKey(bytes(v, "sender"), owner.publicKey(), sender, owner.publicKey()),
              secret(v, "dropKey"));
    EXPECT_EQ(DropCrypto::dropKey(owner.privateKey(), sender, sender, owner.publicKey()),
              secret(v, "dropKey"));

    const auto item = DropCrypto::openItem(owner, sender, wrapped, meta);
    EXPECT_EQ(item.fileKey, secret(v, "fileKey"));
    EXPECT_EQ(item.meta.name, text(v, "cleanName"));
    EXPECT_EQ(item.meta.mime, text(v, "cleanMime"));
    EXPECT_FALSE(item.meta.mtime);

    EXPECT_EQ(
        failureOf([&] { return DropCrypto::openItem(PairingKeyPair::generate(), sender, wrapped, meta); }),
        authenticationFailed);
    EXPECT_EQ(
        firstUnnoticedFlip(wrapped, [&](ByteView b) { return DropCrypto::openItem(owner, sender, b, meta); }),
        "");
    EXPECT_EQ(
        firstUnnoticedFlip(meta, [&](ByteView b) { return DropCrypto::openItem(owner, sender, wrapped, b); }),
        "");
    for (std::size_t at = 0; at < 32; ++at) {
        EXPECT_EQ(failureOf([&] { return DropCrypto::openItem(owner, flipped(sender, at), wrapped, meta); }),
                  authenticationFailed);
    }
    for (const std::size_t size : {0U, 31U, 32U, 33U}) { // 32 zero bytes are a point of low order
        EXPECT_EQ(failureOf([&] { return DropCrypto::openItem(owner, Bytes(size), wrapped, meta); }),
                  "Invalid public key");
    }
    const SecretBytes key = secret(v, "dropKey");
    const Bytes folder = seal(key, MetaJSON::encode(FolderMeta("x")), CryptoContext::dropMeta);
    EXPECT_EQ(failureOf([&] { return DropCrypto::openItem(owner, sender, wrapped, folder); }),
              "Invalid metadata");
    const Bytes shortKey = seal(key, Bytes(16), CryptoContext::dropWrap);
    EXPECT_EQ(failureOf([&] { return DropCrypto::openItem(owner, sender, shortKey, meta); }),
              "Invalid key length 16");
}

TEST(Drops, OwnersRecordsMatchTheGoldenOnes) {
    const auto v = vectors("golden/sharing").at("drop");
    const MasterKey mk = goldenKey();
    EXPECT_EQ(DropCrypto::fingerprint(bytes(v, "ownerPublic")), text(v, "fingerprint"));
    EXPECT_EQ(DropCrypto::fragment(bytes(v, "ownerPublic"), text(v, "label")), text(v, "fragment"));
    EXPECT_EQ(DropCrypto::fragment(Bytes(32), " \u202e "), std::string(43, 'A'));
    EXPECT_EQ(failureOf([] { return DropCrypto::fingerprint(Bytes(31)); }), "Invalid public key");
    EXPECT_EQ(failureOf([] { return DropCrypto::fragment(Bytes(33), ""); }), "Invalid public key");
    EXPECT_EQ(DropCrypto::derivePasswordKey(text(v, "password"), bytes(v, "passwordSalt"), paramsOf(v)),
              secret(v, "passwordKey"));
    EXPECT_EQ(failureOf([] { return DropCrypto::derivePasswordKey("", Bytes(8), {64, 1, 1, 32}); }), "");

    const auto& l = v.at("linkSecret");
    const DropCrypto::LinkSecret link{1, SecretBytes::copyOf(text(l, "token")), text(l, "label"),
                                      text(l, "folderId")};
    EXPECT_EQ(DropCrypto::openLink(mk, bytes(v, "sealedLink")), link);
    EXPECT_EQ(DropCrypto::openLink(mk, DropCrypto::sealLink(mk, link)), link);
    EXPECT_EQ(open(mk.bytes(), DropCrypto::sealLink(mk, link), CryptoContext::dropLink),
              open(mk.bytes(), bytes(v, "sealedLink"), CryptoContext::dropLink));
    const Bytes broken =
        seal(mk.bytes(), asBytes(R"({"v":1,"token":1,"label":"","folderId":""})"), CryptoContext::dropLink);
    EXPECT_EQ(failureOf([&] { return DropCrypto::openLink(mk, broken); }), "Invalid metadata");
    EXPECT_EQ(failureOf([&] {
                  return DropCrypto::openKeyPair(mk, bytes(v, "wrappedPrivateKey"), bytes(v, "senderPublic"));
              }),
              "Invalid public key");
    EXPECT_TRUE(DropCrypto::isReceivedBlob("drop_1"));
    EXPECT_FALSE(DropCrypto::isReceivedBlob("drop1"));
}

std::string repeated(std::string_view text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

TEST(Drops, TextsOfSendersAreCleaned) {
    using Clean = std::string (*)(std::string_view);
    const std::string octets = "application/octet-stream";
    const std::tuple<Clean, std::string, std::string> table[] = {
        {DropCrypto::sanitizeName, "../../etc/passwd", "....etcpasswd"},
        {DropCrypto::sanitizeName, "..", "file"},
        {DropCrypto::sanitizeName, " . ", "file"},
        {DropCrypto::sanitizeName, "/\\", "file"},
        {DropCrypto::sanitizeName, std::string("a\0b\x1f\x7f\u0085c", 8), "abc"},
        {DropCrypto::sanitizeName, "e/\u0301.txt . ..", "é.txt"},
        {DropCrypto::sanitizeName, "photo\u202egpj.exe", "photogpj.exe"},
        {DropCrypto::sanitizeName, "\u3000.profile", ".profile"},
        {DropCrypto::sanitizeName, repeated("é", 200) + ".tar.gz", repeated("é", 126) + ".gz"},
        {DropCrypto::sanitizeName, repeated("😀", 64), repeated("😀", 63)},
        {DropCrypto::sanitizeName, "a." + std::string(400, 'x'), "a." + std::string(253, 'x')},
        {DropCrypto::sanitizeName, "." + std::string(400, 'x'), "." + std::string(254, 'x')},
        {DropCrypto::sanitizeName, std::string(300, '.') + "x", std::string(254, '.') + "x"},
        {DropCrypto::sanitizeMime, "Text/HTML", "text/html"},
        {DropCrypto::sanitizeMime, "text/html; charset=utf-8", octets},
        {DropCrypto::sanitizeMime, "text", octets},
        {DropCrypto::sanitizeMime, "text/", octets},
        {DropCrypto::sanitizeMime, "/x", octets},
        {DropCrypto::sanitizeMime, "a/b/c", octets},
        {DropCrypto::sanitizeMime, "a/b\n", octets},
        {DropCrypto::sanitizeMime, "a/" + std::string(125, 'b'), "a/" + std::string(125, 'b')},
        {DropCrypto::sanitizeMime, "a/" + std::string(126, 'b'), octets},
        {DropCrypto::sanitizeLabel, "\n Bilder/2024\t ", "Bilder/2024"},
        {DropCrypto::sanitizeLabel, repeated("é", 81), repeated("é", 80)},
        {DropCrypto::sanitizeLabel, std::string(79, 'a') + " b", std::string(79, 'a')},
    };
    for (const auto& [clean, text, expected] : table) {
        EXPECT_EQ(clean(text), expected) << text;
        EXPECT_EQ(clean(expected), expected);
        EXPECT_EQ(failureOf([&] { return clean("\xff"); }), "Invalid encoding");
    }
}

TEST(Drops, TimesOfSendersHaveTheOneForm) {
    const std::pair<std::string_view, bool> table[] = {
        {"2024-01-02T03:04:05Z", true},
        {"2024-01-02T03:04:05.1Z", true},
        {"2024-01-02T03:04:05.123Z", true},
        {"2024-01-02T03:04:05.Z", false},
        {"2024-01-02T03:04:05.1234Z", false},
        {"2024-01-02T03:04:05", false},
        {"2024-01-02T03:04:05z", false},
        {"2024-01-02 03:04:05Z", false},
        {"24-01-02T03:04:05Z", false},
        {"2024-01-02T03:04:05+00:00Z", false},
        {"2024-01-02T03:04:05Z\n", false},
        {"Z", false},
        {"", false},
    };
    for (const auto& [time, kept] : table) {
        const FileMeta meta("n", "a/b", 1, "", std::string(time));
        EXPECT_EQ(DropCrypto::sanitizeMeta(meta).mtime.has_value(), kept) << time;
    }
}

} // namespace
} // namespace KRCrypto::Tests
