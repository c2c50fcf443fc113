#include "KorvaneCore/platform/Files.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace Korvane {
namespace {

using Testing::TemporaryFolder;
using Testing::writeFile;

template <class Operation>
std::error_code errorOf(Operation operation) {
    try {
        operation();
    } catch (const FileError& error) {
        return error.code();
    }
    return {};
}

TEST(Files, ReadingRefusesWhatIsNoFileOrTooLarge) {
    const TemporaryFolder folder;
    writeFile(folder / "ten", "0123456789");
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);

    EXPECT_EQ(readFile(folder / "ten", 10), "0123456789");
    EXPECT_EQ(errorOf([&] { (void)readFile(folder / "ten", 9); }), std::errc::file_too_large);
    EXPECT_EQ(errorOf([&] { (void)readFile(folder / "none", 9); }), std::errc::no_such_file_or_directory);
    EXPECT_EQ(errorOf([&] { (void)readFile(folder.path(), 9); }), std::errc::invalid_argument);
    EXPECT_EQ(errorOf([&] { (void)readFile(folder / "pipe", 9); }), std::errc::invalid_argument);
    // Says 0 bytes, holds more: the limit counts what is read.
    EXPECT_EQ(errorOf([&] { (void)readFile("/proc/self/status", 20); }), std::errc::file_too_large);
}

TEST(Files, ReplacingKeepsTheOldFileWhenItFailsAndLeavesNothingBeside) {
    const TemporaryFolder folder;
    replaceFile(folder / "file", "first");
    replaceFile(folder / "file", "second", 0644);
    EXPECT_EQ(readFile(folder / "file", 100), "second");
    struct stat status{};
    ASSERT_EQ(::stat((folder / "file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644U);

    std::filesystem::create_directories(folder / "taken" / "inside");
    EXPECT_EQ(errorOf([&] { replaceFile(folder / "taken", "x"); }), std::errc::is_a_directory);
    std::size_t names = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path()))
        ++names;
    EXPECT_EQ(names, 2U);
}

TEST(Files, CreatedFoldersAreTheOwnersAlone) {
    const TemporaryFolder folder;
    createDirectories(folder / "a/b/c");
    createDirectories(folder / "a/b/c");
    for (const auto* name : {"a", "a/b", "a/b/c"})
        EXPECT_NO_THROW(requirePrivateFolder(folder / name));

    writeFile(folder / "file", "");
    EXPECT_EQ(errorOf([&] { createDirectories(folder / "file"); }), std::errc::file_exists);
    EXPECT_EQ(errorOf([&] { createDirectories(folder / "file/below"); }), std::errc::not_a_directory);
    std::filesystem::create_symlink(folder / "a", folder / "link");
    EXPECT_EQ(errorOf([&] { requirePrivateFolder(folder / "link"); }), std::errc::permission_denied);
    std::filesystem::permissions(folder / "a", std::filesystem::perms::all);
    EXPECT_EQ(errorOf([&] { requirePrivateFolder(folder / "a"); }), std::errc::permission_denied);
}

} // namespace
} // namespace Korvane
