#include "KorvaneCore/platform/PropertyList.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace Korvane {
namespace {

TEST(PropertyList, EveryKindSurvivesWritingAndReading) {
    const PropertyList::Date date{std::chrono::seconds(1'795'000'000)};
    const PropertyList::Data data{std::byte{0}, std::byte{0xFF}, std::byte{10}};
    const PropertyList everything{PropertyList::Dictionary{
        {"array", {PropertyList::Array{{true}, {std::string("a")}}}},
        {"before 1970", {PropertyList::Date{std::chrono::seconds(-1000)}}},
        {"bool", {false}},
        {"data", {data}},
        {"date", {date}},
        {"largest", {std::numeric_limits<std::int64_t>::max()}},
        {"negative", {std::int64_t{-42}}},
        {"real", {0.25}},
        {"smallest", {std::numeric_limits<std::int64_t>::min()}},
        {"text <&>", {std::string("Zürich \"&\" <b>\n末")}},
        {"empty", {PropertyList::Dictionary{}}},
    }};
    EXPECT_EQ(parsePropertyList(formatPropertyList(everything)), everything);
}

TEST(PropertyList, WhatIsNoPropertyListIsRefused) {
    for (const auto* text : {"", "hello", "<plist>", "{\"a\":1}", "bplist00",
                             "<plist><dict><key>a</key><true/>", "<plist><dict><key>a</key><true/></dict>"})
        EXPECT_THROW((void)parsePropertyList(text), PropertyListError) << text;
    EXPECT_THROW((void)formatPropertyList({std::string("a\0b", 3)}), PropertyListError);

    std::string deep = "<plist>";
    for (int i = 0; i < 200; ++i)
        deep += "<array>";
    for (int i = 0; i < 200; ++i)
        deep += "</array>";
    EXPECT_THROW((void)parsePropertyList(deep + "</plist>"), PropertyListError);
}

} // namespace
} // namespace Korvane
