#include "KorvaneCore/sync/SyncPlan.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace Korvane::Testing {
namespace {

using BaseEntry = LocalIndex::BaseEntry;

struct Here {
    const char* path;
    std::int64_t size;
    double mtime;
    std::uint64_t inode;
    bool isFolder = false;
    bool isTouched = false; ///< since the last look
};

/// The plan in one line of text: "folder a", "move a>b", "upload a", "version a", "doubt a".
std::string planned(const std::vector<Here>& base, const std::vector<Here>& now) {
    std::map<std::string, BaseEntry> entries;
    for (const auto& [path, size, mtime, inode, isFolder, isTouched] : base)
        entries[path] = {path, std::string("id-") + path, isFolder, 1, size, mtime, inode, "hash"};
    const auto lookedAt = std::chrono::system_clock::now();
    LocalScan scan;
    for (const auto& [path, size, mtime, inode, isFolder, isTouched] : now)
        scan.entries.push_back(
            {path, {size, mtime, inode, isFolder}, lookedAt + std::chrono::seconds(isTouched ? 1 : -1)});
    const auto plan = planSync(scan, entries, lookedAt);
    std::string text;
    for (const auto& step : plan.steps)
        if (const auto* move = std::get_if<SyncPlan::Move>(&step))
            text += "move " + move->from + ">" + move->entry.relPath + " ";
        else
            text += "folder " + std::get<SyncPlan::NewFolder>(step).relPath + " ";
    for (const auto& upload : plan.uploads)
        text += (upload.base ? "version " : "upload ") + upload.entry.relPath + " ";
    for (const auto& doubtful : plan.doubtful)
        text += "doubt " + doubtful.entry.relPath + " ";
    return text;
}

TEST(SyncPlanTest, EachDifferenceAsksForOneThing) {
    const Here file{"f", 5, 100, 1};
    const Here folder{"d", 0, 100, 2, true};
    const Here inside{"d/x", 7, 100, 3};
    const std::tuple<const char*, std::vector<Here>, std::vector<Here>, const char*> table[] = {
        {"nothing", {file, folder}, {file, folder}, ""},
        {"new ones", {}, {folder, inside}, "folder d upload d/x "},
        {"removed", {file}, {}, ""},
        {"another size", {file}, {{"f", 6, 101, 1}}, "version f "},
        {"another date", {file}, {{"f", 5, 101, 1}}, "doubt f "},
        {"another inode", {file}, {{"f", 5, 100, 9}}, "doubt f "},
        {"looks restored", {file}, {{"f", 5, 100, 1, false, true}}, "doubt f "},
        {"a date apart by rounding", {file}, {{"f", 5, 100.0004, 1}}, ""},
        {"moved", {file}, {{"g", 5, 100, 1}}, "move f>g "},
        {"moved and edited", {file}, {{"g", 6, 101, 1}}, "upload g "},
        {"an inode given out again", {file}, {{"g", 5, 200, 1}}, "upload g "},
        {"a copy", {file}, {file, {"g", 5, 100, 7}}, "upload g "},
        {"a link count of two", {file}, {file, {"g", 5, 100, 1}}, "upload g "},
        {"a folder moved with its content",
         {folder, inside},
         {{"e", 0, 100, 2, true}, {"e/x", 7, 100, 3}},
         "move d>e "},
        {"edited in a moved folder",
         {folder, inside},
         {{"e", 0, 100, 2, true}, {"e/x", 8, 101, 3}},
         "move d>e version e/x "},
        {"out of a moved folder",
         {folder, inside},
         {{"e", 0, 100, 2, true}, {"x", 7, 100, 3}},
         "folder e move d/x>x "},
        {"into a new folder", {file}, {{"d", 0, 100, 9, true}, {"d/f", 5, 100, 1}}, "folder d move f>d/f "},
        {"a folder's name given to another",
         {folder, inside},
         {{"d", 0, 100, 9, true}, {"e", 0, 100, 2, true}, {"e/x", 7, 100, 3}},
         "folder e move d/x>e/x "},
        {"into a moved folder, from a moved one",
         {{"c", 0, 1, 5, true}, {"c/y", 4, 1, 6}, folder, inside},
         {{"e", 0, 100, 2, true}, {"e/c", 0, 1, 5, true}, {"e/c/y", 4, 1, 6}, {"e/x", 7, 100, 3}},
         "move d>e move c>e/c "},
        {"an empty folder moved", {folder}, {{"e", 0, 100, 2, true}}, "move d>e "},
        {"a folder's inode given out again",
         {folder, inside},
         {{"e", 0, 100, 2, true}, {"e/x", 9, 300, 4}},
         "folder e upload e/x "},
        {"a file became a folder", {file}, {{"f", 0, 100, 8, true}}, "folder f "},
    };
    for (const auto& [what, base, now, expected] : table)
        EXPECT_EQ(planned(base, now), expected) << what;
}

} // namespace
} // namespace Korvane::Testing
