#include "KorvaneCore/json/KRJSON.hpp"

#include "KorvaneCore/json/JSONValue.hpp"
#include "KorvaneCore/json/SecretText.hpp"

#include <gtest/gtest.h>

#include <random>

namespace Korvane {
namespace {

enum class Colour { red, green };
BOOST_DESCRIBE_ENUM(Colour, red, green)

struct Inner {
    std::string name;
    std::optional<std::int64_t> count;
    bool operator==(const Inner&) const = default;
};
BOOST_DESCRIBE_STRUCT(Inner, (), (name, count))

struct Outer {
    std::vector<Inner> items;
    Colour colour = Colour::red;
    std::map<std::string, double> sizes;
    std::optional<KRJSON::Date> when;
    std::uint8_t small = 0;
    bool operator==(const Outer&) const = default;
};
BOOST_DESCRIBE_STRUCT(Outer, (), (items, colour, sizes, when, small))

struct Sealed {
    KRCrypto::Bytes box;
    std::optional<KRCrypto::SecretBytes> key;
    SecretText token;
    bool operator==(const Sealed&) const = default;
};
BOOST_DESCRIBE_STRUCT(Sealed, (), (box, key, token))

TEST(KRJSON, RecordsAreReadAsTheyAreWritten) {
    const Outer outer{{{"a", 1}, {"b", std::nullopt}},
                      Colour::green,
                      {{"x", 0.5}},
                      KRJSON::parseDate("2026-11-21T10:45:07.25Z"),
                      255};
    const auto text = KRJSON::write(outer);
    EXPECT_EQ(text, R"({"items":[{"name":"a","count":1},{"name":"b"}],"colour":"green","sizes":{"x":5E-1},)"
                    R"("when":"2026-11-21T10:45:07.250Z","small":255})");
    EXPECT_EQ(KRJSON::read<Outer>(text), outer);
    EXPECT_EQ(KRJSON::read<Inner>(R"({"count":null,"unknown":[{}],"name":"a"})"), (Inner{"a", std::nullopt}));
}

TEST(KRJSON, NumbersComeBackToTheLastBit) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 20'000; ++i) {
        const auto seconds = 1.7e9 + static_cast<double>(random() % 1'000'000'000) / 997;
        const std::map<std::string, double> numbers{{"mtime", seconds}};
        ASSERT_EQ((KRJSON::read<std::map<std::string, double>>(KRJSON::write(numbers))), numbers);
    }
}

TEST(KRJSON, ErrorsNameTheRecordTheKeyAndBothKinds) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"items":[{"name":"a"},{"name":7}],"colour":"red","sizes":{},"small":1})",
         "Outer: items[1].name: expected string, got number"},
        {R"({"colour":"red","sizes":{},"small":1})", "Outer: items: is missing"},
        {R"({"items":[],"colour":"blue","sizes":{},"small":1})", "Outer: colour: unknown Colour \"blue\""},
        {R"({"items":[],"colour":"red","sizes":{"a":"b"},"small":1})",
         "Outer: sizes.a: expected number, got string"},
        {R"({"items":[],"colour":"red","sizes":{},"small":256})",
         "Outer: small: expected integer in range, got number"},
        {R"({"items":[],"colour":"red","sizes":{},"small":1.0})",
         "Outer: small: expected integer in range, got number"},
        {R"({"items":[],"colour":"red","sizes":{},"small":1,"when":"now"})",
         "Outer: when: Invalid ISO-8601 date now"},
        {R"([])", "Outer: expected object, got array"},
    };
    for (const auto& [text, message] : cases) {
        try {
            (void)KRJSON::read<Outer>(text);
            FAIL() << text;
        } catch (const JSONError& error) {
            EXPECT_STREQ(error.what(), message);
        }
    }
    for (const auto* text : {"", "{", "{}x", "nul", "\"\xff\"", "01"})
        EXPECT_THROW((void)KRJSON::parse(text), JSONError);
    EXPECT_THROW((void)KRJSON::parse(std::string(100, '[') + std::string(100, ']')), JSONError);
}

TEST(KRJSON, BytesAreStandardBase64AndSecretTextsStrings) {
    const Sealed sealed{{0xfb, 0xff, 0x00}, KRCrypto::SecretBytes::copyOf("key"), "t.o.k"};
    const auto text = KRJSON::write(sealed);
    EXPECT_EQ(text, R"({"box":"+/8A","key":"a2V5","token":"t.o.k"})");
    EXPECT_EQ(KRJSON::read<Sealed>(text), sealed);
    EXPECT_EQ(KRJSON::read<Sealed>(R"({"box":"","key":null,"token":""})"), Sealed{});
    for (const auto* bad : {R"({"box":"-_8A","token":""})", R"({"box":"+/8A\n","token":""})",
                            R"({"box":[0],"token":""})", R"({"box":"","token":7})"})
        EXPECT_THROW((void)KRJSON::read<Sealed>(bad), JSONError) << bad;
}

TEST(KRJSON, FreeFormValuesKeepTheirCase) {
    const auto* text = R"({"array":[null,true,-1,1.5E-1],"big":9007199254740992,"text":"1"})";
    const auto value = KRJSON::read<JSONValue>(text);
    EXPECT_EQ(KRJSON::write(value), text);
    EXPECT_EQ(value, (JSONValue::Object{{"array", JSONValue::Array{{}, true, -1, 0.15}},
                                        {"big", 9007199254740992.0},
                                        {"text", "1"}}));
    EXPECT_NE(value, JSONValue{});
}

TEST(KRJSON, DatesAreReadWithAnyFractionAndOffset) {
    const std::pair<const char*, const char*> valid[] = {
        {"2026-11-21T10:45:07Z", "2026-11-21T10:45:07.000Z"},
        {"2026-11-21T10:45:07.2Z", "2026-11-21T10:45:07.200Z"},
        {"2026-11-21T10:45:07.123456789Z", "2026-11-21T10:45:07.123Z"},
        {"2026-11-21T10:45:07.9996Z", "2026-11-21T10:45:08.000Z"},
        {"2026-11-21T12:45:07+02:00", "2026-11-21T10:45:07.000Z"},
        {"2026-11-21T05:15:07.5-0530", "2026-11-21T10:45:07.500Z"},
        {"1969-12-31T23:59:59.001Z", "1969-12-31T23:59:59.001Z"},
    };
    for (const auto& [text, written] : valid) {
        ASSERT_TRUE(KRJSON::parseDate(text)) << text;
        EXPECT_EQ(KRJSON::formatDate(*KRJSON::parseDate(text)), written) << text;
    }
    for (const auto* text :
         {"", "2026-11-21", "2026-11-21T10:45:07", "2026-02-30T00:00:00Z", "2026-11-21T24:00:00Z",
          "2026-11-21T10:45:07.Z", "9999-12-31T00:00:00Z", "0001-01-01T00:00:00Z", "2026-11-21T10:45:07Zx",
          "2026-11-21T10:45:07+2", "-026-11-21T10:45:07Z"})
        EXPECT_FALSE(KRJSON::parseDate(text)) << text;
}

} // namespace
} // namespace Korvane
