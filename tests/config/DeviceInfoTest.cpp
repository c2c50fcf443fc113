#include "KorvaneCore/config/DeviceInfo.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace Korvane {
namespace {

TEST(DeviceInfo, ThePreferredNameIsTrimmedAndABlankOneBringsBackTheDefault) {
    const Testing::TemporaryContainer container;
    ASSERT_FALSE(DeviceInfo::macDefaultName().empty());
    EXPECT_EQ(DeviceInfo::currentDeviceName(), DeviceInfo::macDefaultName());
    DeviceInfo::setPreferredName(" \u00A0Ada's desk\n");
    EXPECT_EQ(DeviceInfo::currentDeviceName(), "Ada's desk");
    DeviceInfo::setPreferredName(" \t\u3000");
    EXPECT_EQ(DeviceInfo::currentDeviceName(), DeviceInfo::macDefaultName());
}

TEST(DeviceInfo, SymbolsFollowPlatformAndName) {
    const struct {
        const char *name, *platform, *symbol;
    } cases[] = {
        {"Ada's iMac", "macos", "desktopcomputer"},
        {"MAC MINI", "macos", "desktopcomputer"},
        {"Mac Studio", "macos", "desktopcomputer"},
        {"mac pro 7", "macos", "desktopcomputer"},
        {"MacBook Pro", "macos", "laptopcomputer"},
        {"", "macos", "laptopcomputer"},
        {"Ada's iPad Pro", "ios", "ipad"},
        {"iPod touch", "ios", "ipodtouch"},
        {"Ada's telephone", "ios", "iphone"},
        {"iMac", "web", "globe"},
        {"iPad", "", "globe"},
        {"iMac", "macOS", "globe"},
    };

    for (const auto& test : cases)
        EXPECT_EQ(DeviceInfo::symbol(test.name, test.platform), test.symbol) << test.name;
}

TEST(DeviceInfo, MobileDefaultsKeepARealNameAndTagAGenericOne) {
    EXPECT_EQ(DeviceInfo::mobileDefaultName(" Ada's phone ", false, "1a2b3c4d"), "Ada's phone");
    EXPECT_EQ(DeviceInfo::mobileDefaultName("iPhone", false, "1a2b3c4d"), "iPhone (1A2B)");
    EXPECT_EQ(DeviceInfo::mobileDefaultName("ipad", true, std::nullopt), "iPad");
    for (const auto* name : {"", " ", "iPhone", "IPAD", "iPod touch", "iPad (1A2B)"})
        EXPECT_TRUE(DeviceInfo::isGenericName(name)) << name;
    for (const auto* name : {"Ada's iPhone", "iPhone 15", "iPad (work)"})
        EXPECT_FALSE(DeviceInfo::isGenericName(name)) << name;
}

} // namespace
} // namespace Korvane
