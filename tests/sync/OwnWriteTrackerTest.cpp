#include "KorvaneCore/sync/OwnWriteTracker.hpp"

#include "KorvaneCore/json/KRJSON.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/VirtualClock.hpp"

#include <gtest/gtest.h>

#include <fstream>

namespace Korvane {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Testing::writeFile;

struct OwnWrites : testing::Test {
    void registerAsIs() { tracker.registerWrite(path, localStat(path).value()); }

    Testing::TemporaryFolder folder;
    const fs::path path = folder / "file";
    std::shared_ptr<Testing::VirtualClock> clock = std::make_shared<Testing::VirtualClock>();
    OwnWriteTracker tracker{5, clock};
};

TEST_F(OwnWrites, RegistrationsHoldForTheirWindow) {
    writeFile(path, "content");
    registerAsIs();
    tracker.registerRemoval(folder / "gone");
    for (const auto& [step, expected] : {std::pair(0s, true), {5s, true}, {1s, false}}) {
        clock->advance(step);
        EXPECT_EQ(tracker.isOwnWrite(path), expected) << step.count();
        EXPECT_EQ(tracker.isOwnWrite(folder / "gone"), expected) << step.count();
    }
    EXPECT_FALSE(tracker.isOwnWrite(folder / "never registered"));
}

TEST_F(OwnWrites, RegisteringAgainBeginsTheWindowAnew) {
    writeFile(path, "content");
    registerAsIs();
    clock->advance(4s);
    registerAsIs();
    clock->advance(4s);
    EXPECT_TRUE(tracker.isOwnWrite(path));
    clock->jump(-1h); // the user sets the clock
    clock->advance(2s);
    EXPECT_FALSE(tracker.isOwnWrite(path));
}

TEST_F(OwnWrites, WhatAnyoneDoesToTheFileAfterwardsCounts) {
    const std::vector<std::tuple<const char*, bool, std::function<void()>>> cases{
        {"nothing", true, [] {}},
        {"permissions", true, [&] { fs::permissions(path, fs::perms::owner_read); }},
        {"appended", false, [&] { std::ofstream(path, std::ios::app) << "more"; }},
        {"rewritten later at the same size", false,
         [&] { fs::last_write_time(path, fs::last_write_time(path) + 2ms); }},
        {"time rounded", true, [&] { fs::last_write_time(path, fs::last_write_time(path) + 900us); }},
        {"another inode, same size and time", true,
         [&] {
             fs::copy_file(path, folder / "copy");
             fs::last_write_time(folder / "copy", fs::last_write_time(path));
             fs::rename(folder / "copy", path);
         }},
        {"removed", false, [&] { fs::remove(path); }},
        {"a folder instead", false, [&] { fs::remove(path), fs::create_directory(path); }},
    };
    for (const auto& [name, expected, act] : cases) {
        fs::remove_all(path);
        writeFile(path, "content");
        registerAsIs();
        act();
        EXPECT_EQ(tracker.isOwnWrite(path), expected) << name;
    }
}

TEST_F(OwnWrites, AFolderStaysOnesOwnWhateverHappensInIt) {
    fs::create_directory(path);
    registerAsIs();
    writeFile(path / "inside", "");
    fs::last_write_time(path, fs::file_time_type::clock::now() + 1h);
    EXPECT_TRUE(tracker.isOwnWrite(path));
}

TEST_F(OwnWrites, ARemovalIsOnesOwnWhileNothingIsThereAgain) {
    tracker.registerRemoval(path);
    EXPECT_TRUE(tracker.isOwnWrite(path));
    fs::create_symlink("nowhere", path);
    EXPECT_FALSE(tracker.isOwnWrite(path));
}

TEST_F(OwnWrites, TheLastRegistrationOfAPathIsTheOneThatCounts) {
    writeFile(path, "content");
    const auto stat = localStat(path).value();
    tracker.registerRemoval(path);
    tracker.registerWrite(path, stat);
    fs::remove(path);
    EXPECT_FALSE(tracker.isOwnWrite(path)) << "the removal is forgotten";

    tracker.registerRemoval(path);
    writeFile(path, "content");
    tracker.registerWrite(path, localStat(path).value());
    tracker.registerRemoval(path);
    EXPECT_FALSE(tracker.isOwnWrite(path)) << "the write is forgotten";
}

TEST_F(OwnWrites, WhatCannotBeLookedAtCounts) {
    const auto tooLong = folder / std::string(256, 'n');
    tracker.registerRemoval(tooLong);
    EXPECT_FALSE(tracker.isOwnWrite(tooLong));
}

TEST(LocalStat, IsOfThePathItselfAndCrossesJSONUnchanged) {
    const Testing::TemporaryFolder folder;
    writeFile(folder / "file", "12345");
    fs::create_directory_symlink(folder.path(), folder / "link");
    EXPECT_EQ(localStat(folder / "file")->size, 5);
    EXPECT_TRUE(localStat(folder.path())->isDirectory);
    EXPECT_FALSE(localStat(folder / "link")->isDirectory);
    EXPECT_EQ(localStat(folder / "file/none"), std::nullopt);

    const LocalStat stat{5'000'000'000, 1.7e9 + 0.25, 1ULL << 63, false};
    EXPECT_EQ(KRJSON::write(LocalStat{1, 2.5, 3, true}),
              R"({"size":1,"mtime":2.5E0,"inode":3,"isDirectory":true})");
    EXPECT_EQ(KRJSON::read<LocalStat>(KRJSON::write(stat)), stat);
}

} // namespace
} // namespace Korvane
