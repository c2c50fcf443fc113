#include "KorvaneCore/platform/UserDefaults.hpp"

#include "KorvaneCore/platform/Files.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace Korvane {
namespace {

using Testing::ChildProcess;

TEST(UserDefaults, ProcessesWritingAtOnceLoseNothing) {
    const Testing::TemporaryContainer container;
    const auto peer = Testing::builtProgram("korvane-test-peer").string();
    constexpr int keysEach = 60;
    ChildProcess first({peer, "set-defaults", "first.", std::to_string(keysEach)});
    ChildProcess second({peer, "set-defaults", "second.", std::to_string(keysEach)});
    UserDefaults defaults(container.path() / "Library/Preferences/group.app.korvane.plist");
    for (int i = 0; i < keysEach; ++i)
        defaults.set("own." + std::to_string(i), PropertyList{std::int64_t{i}});
    ASSERT_EQ(first.wait(), 0);
    ASSERT_EQ(second.wait(), 0);

    for (const auto* prefix : {"first.", "second.", "own."})
        for (int i = 0; i < keysEach; ++i)
            EXPECT_EQ(defaults.object(prefix + std::to_string(i)), PropertyList{std::int64_t{i}})
                << prefix << i;
}

TEST(UserDefaults, ReadingCreatesNothingAndFollowsOtherWriters) {
    const Testing::TemporaryFolder folder;
    const auto file = folder / "deep/suite.plist";
    const UserDefaults reader(file);
    EXPECT_FALSE(reader.object("key"));
    EXPECT_FALSE(std::filesystem::exists(folder / "deep"));

    UserDefaults writer(file);
    writer.set("key", PropertyList{true});
    EXPECT_EQ(reader.object("key"), PropertyList{true});
    writer.set("key", std::nullopt);
    EXPECT_FALSE(reader.object("key"));
}

TEST(UserDefaults, WhatCouldNotBeReadBackIsNotWritten) {
    const Testing::TemporaryFolder folder;
    UserDefaults defaults(folder / "suite.plist");
    defaults.set("kept", PropertyList{true});
    PropertyList deep{true};
    for (int i = 0; i < 40; ++i)
        deep = PropertyList{PropertyList::Array{deep}};
    EXPECT_THROW(defaults.set("key", deep), PropertyListError);
    EXPECT_THROW(defaults.set("key", PropertyList{std::string(1 << 20, 'x')}), PropertyListError);
    EXPECT_EQ(defaults.object("kept"), PropertyList{true});
    EXPECT_EQ(defaults.object("key"), std::nullopt);
}

TEST(UserDefaults, ADamagedFileIsReportedAndNeverOverwritten) {
    const Testing::TemporaryFolder folder;
    for (const std::string damage : {"not a list", "<plist><array/></plist>", ""}) {
        Testing::writeFile(folder / "suite.plist", damage);
        UserDefaults defaults(folder / "suite.plist");
        EXPECT_THROW((void)defaults.object("key"), PropertyListError) << damage;
        EXPECT_THROW(defaults.set("key", PropertyList{true}), PropertyListError) << damage;
        EXPECT_EQ(readFile(folder / "suite.plist", 100), damage);
    }
}

} // namespace
} // namespace Korvane
