#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/MetaJSON.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "KRCrypto/UnicodeText.hpp"
#include "tests/KRCrypto/Vectors.hpp"

#include <gtest/gtest.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

namespace KRCrypto::Tests {
namespace {

EntryMeta metaOf(const Value& v) {
    if (!v.as_object().contains("mime")) {
        return FolderMeta(text(v, "name"));
    }
    const auto& size = v.at("size");
    FileMeta file(text(v, "name"), text(v, "mime"),
                  size.is_string() ? std::stoll(text(v, "size")) : size.as_int64(), text(v, "sha256"));
    if (v.as_object().contains("mtime")) {
        file.mtime = text(v, "mtime");
    }
    return file;
}

TEST(Metadata, EncodesToTheGoldenTextAndComesBack) {
    const MasterKey mk = goldenKey();
    for (const auto& v : rows("golden/entries", "metas")) {
        const EntryMeta meta = metaOf(v.at("meta"));
        EXPECT_EQ(asText(MetaJSON::encode(meta)), text(v, "json"));
        const EntryMeta back = mk.openMeta(mk.sealMeta(meta));
        EXPECT_EQ(back.name(), toNFC(meta.name()));
        if (v.as_object().contains("sealed")) {
            EXPECT_EQ(mk.openMeta(bytes(v, "sealed")), back);
        }
    }
    EXPECT_EQ(failureOf([&] { return mk.sealMeta(FolderMeta("bad\xc3")); }), invalidEncoding);
    EXPECT_EQ(failureOf([&] { return mk.sealMeta(FileMeta("a", "\xff", 0, "")); }), invalidEncoding);
    EXPECT_EQ(failureOf([&] { return mk.sealMeta(FolderMeta(std::string(262144, 'x'))); }), sizeMismatch);
    EXPECT_EQ(failureOf([&] { return mk.openMeta(Bytes(262144 + 30, 1)); }), invalidMeta);
}

TEST(Metadata, OfNewerWritersDecodesAndInvalidOneDoesNotOpen) {
    const MasterKey mk = goldenKey();
    for (const auto& v : rows("cases/metadata")) {
        const std::string json = text(v, "json");
        const Bytes sealed = seal(mk.bytes(), asBytes(json), CryptoContext::meta);
        EXPECT_EQ(failureOf([&] { return MetaJSON::decode(asBytes(json)); }),
                  flag(v, "decodes") ? "" : invalidMeta)
            << json.substr(0, 100);
        EXPECT_EQ(failureOf([&] { return mk.openMeta(sealed); }), flag(v, "opens") ? "" : invalidMeta)
            << json.substr(0, 100);
    }
}

TEST(BlindIndex, MatchesTheGoldenNames) {
    const MasterKey mk = goldenKey();
    for (const auto& v : rows("golden/entries", "names")) {
        EXPECT_EQ(MasterKey::blindIndexInput(text(v, "name")), text(v, "input"));
        EXPECT_EQ(mk.nameBlindIndex(text(v, "name")), text(v, "blindIndex"));
    }
    std::string endless = "a";
    for (int i = 0; i < 400000; ++i) {
        endless += "\u0316\u0301";
    }
    for (const std::string_view bad :
         {"\xff", "a\xc3", "\xed\xa0\x80", "\xc0\xaf", "\xf4\x90\x80\x80", endless.c_str()}) {
        EXPECT_EQ(failureOf([&] { return MasterKey::blindIndexInput(bad); }), invalidEncoding);
    }
}

// Against the library's own full mapping of each code point, in no language.
TEST(LowerCase, IsUnicodesFullMappingForEveryCodePoint) {
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF) {
            continue;
        }
        std::string one;
        appendUTF8(one, c);
        std::string expected;
        icu::UnicodeString(static_cast<UChar32>(c)).toLower(icu::Locale::getRoot()).toUTF8String(expected);
        ASSERT_EQ(toLower(one), expected) << "U+" << std::hex << static_cast<std::uint32_t>(c);
    }
}

TEST(BlobIds, FollowTheContentNotItsHexText) {
    const auto v = vectors("golden/entries").at("blob");
    EXPECT_EQ(goldenKey().blobId(bytes(v, "sha256")), text(v, "blobId"));
    EXPECT_NE(MasterKey::generate().blobId(bytes(v, "sha256")), text(v, "blobId"));
    EXPECT_EQ(failureOf([&] { return goldenKey().blobId(asBytes(text(v, "sha256"))); }), sizeMismatch);
}

TEST(AppData, IsBoundToItsName) {
    const MasterKey mk = goldenKey();
    const auto v = vectors("golden/entries").at("appData");
    EXPECT_EQ(mk.openAppData(text(v, "name"), bytes(v, "sealed")), bytes(v, "value"));
    const Bytes sealed = mk.sealAppData("a", Bytes{1});
    EXPECT_EQ(mk.openAppData("a", sealed), Bytes{1});
    for (const std::string_view other :
         {std::string_view("b"), std::string_view(), std::string_view("a\0", 2)}) {
        EXPECT_EQ(failureOf([&] { return mk.openAppData(other, sealed); }), authenticationFailed);
    }
}

} // namespace
} // namespace KRCrypto::Tests
