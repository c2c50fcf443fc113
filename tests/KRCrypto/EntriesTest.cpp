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

MasterKey goldenKey() {
    return MasterKey::fromBytes(bytes(vectors("golden/account"), "masterKey"));
}

EntryMeta metaOf(const boost::json::value& v) {
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
        EXPECT_EQ(firstUnnoticedFlip(mk.sealMeta(meta), [&](ByteView b) { return mk.openMeta(b); }), "");
    }
    EXPECT_EQ(failureOf([&] { return mk.sealMeta(FolderMeta("bad\xc3")); }), "Invalid encoding");
    EXPECT_EQ(failureOf([&] { return mk.sealMeta(FileMeta("a", "\xff", 0, "")); }), "Invalid encoding");
}

std::string nested(int depth) {
    const auto times = static_cast<std::size_t>(depth);
    return R"({"v":1,"name":"n","x":)" + std::string(times, '[') + std::string(times, ']') + "}";
}

TEST(Metadata, DecodesRecordsOfNewerWritersAndRefusesBrokenOnes) {
    const std::string file = R"({"v":1,"name":"n","mime":"m","sha256":"s","size":)";
    const std::pair<std::string, bool> table[] = {
        {R"({"v":1,"name":"n"})", true},
        {R"( { "name" : "n" , "x" : {"y":[1.5,null]}, "v" : 2 } )", true},
        {R"({"v":1,"name":""})", true},
        {R"({"v":"x","v":1,"name":"n"})", true}, // of equal keys the last one counts
        {R"({"v":1,"v":"x","name":"n"})", false},
        {R"({"v":1,"name":"\u0000\ud83d\ude00"})", true},
        {file + "9223372036854775807}", true},
        {file + "-9223372036854775808}", true},
        {file + R"(1,"mtime":null})", true},
        {file + R"(1,"mtime":"t"})", true},
        {nested(400), true},
        {nested(600), false},
        {nested(1000000), false},
        {std::string(1000000, '['), false},
        {file + "9223372036854775808}", false},
        {file + "-9223372036854775809}", false},
        {file + "18446744073709551616}", false},
        {file + "1.0}", false},
        {file + "1e2}", false},
        {file + "\"1\"}", false},
        {file + "null}", false},
        {file + "1,\"mtime\":5}", false},
        {R"({"v":1,"name":"n","mime":null,"size":1,"sha256":"s"})", false},
        {R"({"v":1,"name":"n","mime":"m","size":1})", false},
        {R"({"v":1,"name":"n","mime":"m","sha256":"s"})", false},
        {"", false},
        {"null", false},
        {"[]", false},
        {R"("v")", false},
        {"{}", false},
        {R"({"v":1})", false},
        {R"({"name":"n"})", false},
        {R"({"v":1.0,"name":"n"})", false},
        {R"({"v":true,"name":"n"})", false},
        {R"({"v":1,"name":1})", false},
        {R"({"v":1,"name":null})", false},
        {R"({"v":1,"name":"n"}x)", false},
        {R"({"v":1,"name":"n"}{})", false},
        {R"({"v":1,"name":"n",})", false},
        {R"({"v":1,"name":"n")", false},
        {"{'v':1,'name':'n'}", false},
        {"/**/{\"v\":1,\"name\":\"n\"}", false},
        {"\xef\xbb\xbf{\"v\":1,\"name\":\"n\"}", false},
        {"{\"v\":1,\"name\":\"\xff\"}", false},
        {"{\"v\":1,\"name\":\"\xed\xa0\x80\"}", false},
        {"{\"v\":1,\"name\":\"a\nb\"}", false},
        {R"({"v":1,"name":"\ud800"})", false},
        {R"({"v":1,"name":"\udc00x"})", false},
        {R"({"v":01,"name":"n"})", false},
        {std::string("{\"v\":1,\"name\":\"n\"}\0", 19), false},
    };
    for (const auto& [json, fine] : table) {
        EXPECT_EQ(failureOf([&] { return MetaJSON::decode(asBytes(json)); }), fine ? "" : "Invalid metadata")
            << json.substr(0, 100);
    }
}

TEST(Metadata, IsValidatedAfterEveryOpening) {
    const MasterKey mk = goldenKey();
    const std::string hash(62, 'a');
    const std::tuple<std::int64_t, std::int64_t, std::string, bool> table[] = {
        {1, 0, hash + "09", true},   {1, 0, hash + "AF", true},   {2, 0, hash + "09", false},
        {0, 0, hash + "09", false},  {1, -1, hash + "09", false}, {1, 0, hash + "0", false},
        {1, 0, hash + "009", false}, {1, 0, hash + "0g", false},  {1, 0, hash + "é", false},
    };
    for (const auto& [v, size, sha256, fine] : table) {
        FileMeta meta("n", "m", size, sha256);
        meta.v = v;
        EXPECT_EQ(failureOf([&] { return mk.openMeta(mk.sealMeta(meta)); }), fine ? "" : "Invalid metadata");
    }
    FolderMeta folder("n");
    folder.v = 2;
    EXPECT_EQ(failureOf([&] { return mk.openMeta(mk.sealMeta(folder)); }), "Invalid metadata");
}

TEST(BlindIndex, MatchesTheGoldenNames) {
    const MasterKey mk = goldenKey();
    for (const auto& v : rows("golden/entries", "names")) {
        EXPECT_EQ(MasterKey::blindIndexInput(text(v, "name")), text(v, "input"));
        EXPECT_EQ(mk.nameBlindIndex(text(v, "name")), text(v, "blindIndex"));
    }
    EXPECT_EQ(mk.nameBlindIndex("E\u0301TE"), mk.nameBlindIndex("éte"));
    EXPECT_NE(mk.nameBlindIndex("été"), mk.nameBlindIndex("éte"));
    for (const std::string_view bad : {"\xff", "a\xc3", "\xed\xa0\x80", "\xc0\xaf", "\xf4\x90\x80\x80"}) {
        EXPECT_EQ(failureOf([&] { return MasterKey::blindIndexInput(bad); }), "Invalid encoding");
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
    const MasterKey mk = goldenKey();
    const auto v = vectors("golden/entries").at("blob");
    EXPECT_EQ(mk.blobId(bytes(v, "sha256")), text(v, "blobId"));
    EXPECT_NE(MasterKey::generate().blobId(bytes(v, "sha256")), text(v, "blobId"));
    EXPECT_EQ(failureOf([&] { return mk.blobId(asBytes(text(v, "sha256"))); }), "Size mismatch");
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
