#include "KorvaneCore/sync/EventFilter.hpp"

#include <gtest/gtest.h>

namespace Korvane {
namespace {

TEST(EventFilter, NoiseIsToldByTheLastComponentAlone) {
    const std::vector<std::pair<std::string, bool>> cases{
        {"/r/.DS_Store", true},
        {"/r/Icon\r", true},
        {"/r/.localized", true},
        {"/r/.Trash", true},
        {"/r/.TemporaryItems", true},
        {"/r/.fseventsd", true},
        {"/r/._photo.jpg", true},
        {"/r/~$report.docx", true},
        {"/r/.korvane-17.partial", true},
        {"/r/.note.txt.swp", true},
        {"/r/upload.tmp", true},
        {"/r/._", true},
        {"/r/.tmp", true},
        {"/r/Icon", false},
        {"/r/Icon\r.png", false},
        {"/r/.ds_store", false},
        {"/r/.Trash-1000", false},
        {"/r/_.photo", false},
        {"/r/report~$", false},
        {"/r/my.korvane-file", false},
        {"/r/.korvane", false},
        {"/r/file.swp.txt", false},
        {"/r/tmp", false},
        {"/r/.DS_Store/file", false},
        {"/r.tmp/._x/file", false},
        {"/r/file\n.tmp", true},
        {"/r/\xff.swp", true},
    };
    for (const auto& [path, noise] : cases)
        EXPECT_EQ(isNoise(path), noise) << path;
}

TEST(EventFilter, ABatchCallsForAReconcileAtItsFirstForeignChange) {
    struct Case {
        std::vector<std::string> paths;
        bool rescan;
        bool expected;
        std::vector<std::string> asked; // of the tracker; paths that begin with "/own" are its own
    };

    const std::vector<Case> cases{
        {{}, false, false, {}},
        {{"/.DS_Store", "/._a"}, false, false, {}},
        {{"/.DS_Store", "/._a"}, true, true, {}},
        {{"/own", "/a.tmp", "/own2"}, false, false, {"/own", "/own2"}},
        {{"/own", "/a", "/b"}, false, true, {"/own", "/a"}},
    };
    for (const auto& [paths, rescan, expected, asked] : cases) {
        std::vector<std::string> questions;
        const auto isOwnWrite = [&](const std::string& path) {
            questions.push_back(path);
            return path.starts_with("/own");
        };
        EXPECT_EQ(callsForReconcile(paths, rescan, isOwnWrite), expected);
        EXPECT_EQ(questions, asked);
    }
}

} // namespace
} // namespace Korvane
