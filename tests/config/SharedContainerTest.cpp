#include "KorvaneCore/config/SharedContainer.hpp"

#include "KorvaneCore/config/BuildChannel.hpp"
#include "KorvaneCore/config/SharedDefaults.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Korvane {
namespace {

namespace fs = std::filesystem;
using Testing::ChildProcess;
using Testing::ScopedEnvironment;
using Testing::TemporaryFolder;
using Testing::writeFile;

struct Places {
    std::string container, keyPrefix, defaultsFile;
};

/// Asked of a second process, whose bundle and environment are its own.
Places placesOfAnotherProcess() {
    ChildProcess peer({Testing::builtProgram("korvane-test-peer").string(), "where"});
    Places places;
    for (auto* line : {&places.container, &places.keyPrefix, &places.defaultsFile})
        *line = peer.readLine();
    return places;
}

TEST(SharedContainer, EachChannelHasItsOwnFolderAndKeys) {
    const std::pair<const char*, const char*> channels[] = {
        {"app.korvane", ""},
        {"app.korvane.staging.widget", "staging"},
        {"staging", "staging"},
        {"app.debug.korvane", "debug"},
        {"debug.app.staging", "staging"},
        {"app.stagings.korvane", ""},
        {"", ""},
    };
    const TemporaryFolder home;
    const ScopedEnvironment dataHome("XDG_DATA_HOME", home.path().string());
    const ScopedEnvironment bundle("KORVANE_BUNDLE", (home / "bundle").string());
    for (const auto& [identifier, channel] : channels) {
        EXPECT_EQ(BuildChannel::of(identifier), channel);
        writeFile(home / "bundle/Info.plist", "<plist><dict><key>CFBundleIdentifier</key><string>" +
                                                  std::string(identifier) + "</string></dict></plist>");
        const auto places = placesOfAnotherProcess();
        const auto group = home / "group.app.korvane";
        const bool plain = std::string(channel).empty();
        EXPECT_EQ(places.container, plain ? group.string() : (group / channel).string());
        EXPECT_EQ(places.keyPrefix, plain ? "" : std::string(channel) + ".");
        EXPECT_EQ(places.defaultsFile, (group / "Library/Preferences/group.app.korvane.plist").string());
    }
}

TEST(SharedContainer, WithoutAHomeFolderTheAccountsOwnServes) {
    const ScopedEnvironment dataHome("XDG_DATA_HOME", std::nullopt);
    const ScopedEnvironment home("HOME", std::nullopt);
    const auto name = SharedContainer::location().filename();
    EXPECT_TRUE(name == "Korvane" || name == "korvane-" + std::to_string(::getuid())) << name;
    EXPECT_TRUE(
        SharedDefaults::store().defaults->file().string().starts_with(SharedContainer::location().string()));
}

TEST(SharedContainer, TheOverrideRedirectsEverythingAndIsPrivate) {
    const TemporaryFolder folder;
    SharedContainer::setOverrideURL(folder / "deep/container");
    EXPECT_EQ(SharedContainer::databaseURL(), folder / "deep/container/index.sqlite");
    EXPECT_EQ(SharedContainer::statusDatabaseURL(), folder / "deep/container/status.sqlite");
    for (const auto& [path, name] :
         {std::pair{SharedContainer::offline(), "Offline"},
          {SharedContainer::plaintextTemp(), "tmp-plain"},
          {SharedContainer::cipherStaging(), "tmp-cipher"},
          {SharedContainer::durableUploadDirectories()[0], "uploads/camera"},
          {SharedContainer::durableUploadDirectories()[1], "uploads/share-inbox"}}) {
        EXPECT_EQ(path, folder / "deep/container" / name);
        EXPECT_NO_THROW(requirePrivateFolder(path));
    }
    SharedDefaults::store().set(true, "widgets.hideContent");
    EXPECT_TRUE(fs::exists(folder / "deep/container/Library/Preferences/group.app.korvane.plist"));

    writeFile(folder / "file", "");
    SharedContainer::setOverrideURL(folder / "file");
    EXPECT_THROW((void)SharedContainer::url(), FileError);
    SharedContainer::setOverrideURL(std::nullopt);
}

void makeOld(const fs::path& path, std::chrono::seconds age) {
    const auto then = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now() - age);
    const timespec times[] = {{then, 0}, {then, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

TEST(SharedContainer, PurgesRemoveWhatIsOldAndUnreferencedAndNothingElse) {
    const Testing::TemporaryContainer container;
    const TemporaryFolder elsewhere;
    writeFile(elsewhere / "precious", "x");
    const auto old = std::chrono::seconds(604'800 + 60);
    const auto add = [&](const char* name, std::chrono::seconds age) {
        writeFile(container.path() / name, "x");
        makeOld(container.path() / name, age);
    };
    add("tmp-plain/old", old);
    add("tmp-plain/new", std::chrono::seconds(10));
    add("tmp-plain/folder/inner", old);
    fs::create_directory_symlink(elsewhere.path(), container.path() / "tmp-plain/link");
    makeOld(container.path() / "tmp-plain/link", old);
    makeOld(container.path() / "tmp-plain/folder", old);
    add("tmp-import/old", old);
    add("tmp-import/old-referenced", old);
    add("tmp-import/folder/inner", old);
    add("uploads/other/old-referenced", old);
    add("tmp-import/new", std::chrono::seconds(10));
    add("uploads/camera/old", old);
    add("uploads/share-inbox/old", old);
    add("uploads/other/old", old);
    add("uploads/other/below/old", old);
    add("uploads/other/new", std::chrono::seconds(10));
    add("uploads/old", old);

    SharedContainer::purgePlaintextTemp(std::chrono::seconds(604'800));
    SharedContainer::purgeUnreferencedUploadSources({"old-referenced"}, std::chrono::seconds(3'600));

    std::set<std::string> left;
    for (const auto& entry : fs::recursive_directory_iterator(container.path()))
        if (!entry.is_directory())
            left.insert(fs::relative(entry.path(), container.path()).string());
    EXPECT_EQ(left, (std::set<std::string>{"tmp-plain/new", "tmp-import/new", "tmp-import/old-referenced",
                                           "tmp-import/folder/inner", "uploads/other/old-referenced",
                                           "uploads/camera/old", "uploads/share-inbox/old",
                                           "uploads/other/new", "uploads/old"}));
    EXPECT_TRUE(fs::exists(elsewhere / "precious"));
}

TEST(SharedDefaults, ValuesOfOtherKindsReadAsNone) {
    const Testing::TemporaryContainer container;
    const auto plain = SharedDefaults::store();
    const SharedDefaultsStore store{plain.defaults, "staging."};
    const PropertyList::Data bytes{std::byte{1}, std::byte{2}};
    store.set(PropertyList{std::string("text")}, "string");
    store.set(PropertyList{PropertyList::Array{{std::string("a")}, {std::string("b")}}}, "strings");
    store.set(PropertyList{PropertyList::Array{{std::string("a")}, {true}}}, "mixed");
    store.set(PropertyList{bytes}, "data");

    EXPECT_EQ(store.string("string"), "text");
    EXPECT_EQ(store.stringArray("strings"), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(store.data("data"), bytes);
    EXPECT_EQ(store.stringArray("mixed"), std::nullopt);
    EXPECT_EQ(store.string("data"), std::nullopt);
    EXPECT_EQ(store.data("string"), std::nullopt);
    EXPECT_EQ(plain.string("string"), std::nullopt);
    EXPECT_EQ(plain.string("staging.string"), "text");

    const std::pair<PropertyList, bool> truths[] = {
        {{true}, true},   {{false}, false}, {{std::int64_t{0}}, false},   {{std::int64_t{-1}}, true},
        {{0.5}, true},    {{0.0}, false},   {{std::string("YES")}, true}, {{std::string("no")}, false},
        {{bytes}, false},
    };
    for (const auto& [value, truth] : truths) {
        store.set(value, "flag");
        EXPECT_EQ(store.boolean("flag"), truth);
    }
    store.removeObject("flag");
    EXPECT_FALSE(store.object("flag"));
}

} // namespace
} // namespace Korvane
