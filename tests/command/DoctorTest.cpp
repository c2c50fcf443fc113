// `korvane doctor` as a person runs it, on containers and services that are broken in one way each.
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/FileLock.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/sync/SyncRoots.hpp"
#include "tests/support/LocalService.hpp"
#include "tests/support/PasswordInput.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>

namespace Korvane::Testing {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using namespace std::chrono_literals;

struct Line {
    std::string check;
    std::string level;
    std::string text;
    std::string advice;
};
BOOST_DESCRIBE_STRUCT(Line, (), (check, level, text, advice))

struct Diagnosis {
    bool ok = false;
    std::vector<Line> findings;
};
BOOST_DESCRIBE_STRUCT(Diagnosis, (), (ok, findings))

struct Doctor : testing::Test {
    LocalService service; // with a container of the test's own

    Doctor() {
        setServiceClock(0s);
        KRConfiguration::setOverrides(service->baseURL(), std::nullopt);
    }

    void setServiceClock(std::chrono::seconds ahead) const {
        service.clock->jump(std::chrono::system_clock::now() + ahead - service.clock->now());
    }

    static Diagnosis diagnose() {
        const auto result = runProgram("korvane", {"doctor", "--json"});
        auto diagnosis = KRJSON::read<Diagnosis>(result.output);
        EXPECT_EQ(result.exitCode, diagnosis.ok ? 0 : 1);
        return diagnosis;
    }

    /// What it says of one thing; the worst when it says more.
    static Line finding(const std::string& check) {
        Line worst;
        for (const auto& line : diagnose().findings)
            if (line.check == check && worst.level != "problem")
                worst = line;
        return worst;
    }

    static std::map<std::string, fs::file_time_type> filesBelow(const fs::path& folder) {
        std::map<std::string, fs::file_time_type> files;
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            const auto name = entry.path().string();
            if (!entry.is_directory() && !name.ends_with("-wal") && !name.ends_with("-shm"))
                files[name] = entry.last_write_time();
        }
        return files;
    }

    void signUp() {
        ASSERT_EQ(withPassword({"sign-up", "ann@example.org", "--service", service->baseURL()}).exitCode, 0);
    }
};

TEST_F(Doctor, FindsNothingWrongWithASignedInDeviceAndChangesNothing) {
    signUp();
    const LocalIndex index(SharedContainer::databaseURL());
    const auto before = filesBelow(service.container());
    const auto result = runProgram("korvane", {"doctor"});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    std::string watches;
    std::ifstream limit("/proc/sys/fs/inotify/max_user_watches");
    std::getline(limit, watches);
    EXPECT_THAT(result.output, HasSubstr("0 folders to watch, " + watches + " allowed\n"));
    for (const auto* line :
         {"ok       index.sqlite   sound, version ", "ok       keychain       a file for you alone",
          "ok       service        it answers\n", "ok       clock          agrees",
          "ok       sign-in        the service accepts it\n"})
        EXPECT_THAT(result.output, HasSubstr(line));
    EXPECT_EQ(filesBelow(service.container()), before);
}

TEST_F(Doctor, WithoutAContainerNothingIsWrongAndNothingIsMade) {
    fs::remove_all(service.container());
    EXPECT_EQ(finding("container").level, "ok");
    EXPECT_FALSE(fs::exists(service.container()));
}

TEST_F(Doctor, TellsWhatIsBrokenAndWhatToDo) {
    struct Case {
        const char* name;
        std::function<void(Doctor&, const fs::path&)> harm;
        const char* check;
        const char* level;
        const char* text;
    };

    const Case cases[] = {
        {"open to others", [](Doctor&, const fs::path& folder) { fs::permissions(folder, fs::perms(0755)); },
         "container", "problem", "no folder of yours alone"},
        {"a file in its place",
         [](Doctor&, const fs::path& folder) {
             fs::remove_all(folder);
             writeFile(folder, "");
         },
         "container", "problem", "no folder of yours alone"},
        {"index that is no database",
         [](Doctor&, const fs::path& folder) { writeFile(folder / "index.sqlite", std::string(8192, 'x')); },
         "index.sqlite", "problem", "not a database"},
        {"index with a damaged page",
         [](Doctor&, const fs::path&) {
             LocalIndex index(SharedContainer::databaseURL());
             SQLiteDatabase raw(index.url());
             raw.execute(
                 "CREATE TABLE damaged(a UNIQUE); INSERT INTO damaged VALUES(1); PRAGMA writable_schema=ON;"
                 "UPDATE sqlite_master SET rootpage=(SELECT rootpage FROM sqlite_master WHERE name='items') "
                 "WHERE name='damaged'");
         },
         "index.sqlite", "problem", "damaged: "},
        {"index of a later version",
         [](Doctor&, const fs::path&) {
             LocalIndex index(SharedContainer::databaseURL());
             SQLiteDatabase(index.url()).setUserVersion(99);
         },
         "index.sqlite", "warning", "version 99, newer than this program's "},
        {"synced folder that is gone",
         [](Doctor&, const fs::path&) {
             LocalIndex index(SharedContainer::databaseURL());
             SyncRoots::add(index, {"r", "/nowhere/at/all", "f"});
         },
         "file events", "problem", "/nowhere/at/all is not there"},
        {"damaged keychain",
         [](Doctor&, const fs::path& folder) {
             writeFile(folder / "keychain.json", "{");
             fs::permissions(folder / "keychain.json", fs::perms(0600));
         },
         "keychain", "problem", "damaged"},
        {"keychain for all",
         [](Doctor&, const fs::path& folder) {
             writeFile(folder / "keychain.json", "{}");
             fs::permissions(folder / "keychain.json", fs::perms(0644));
         },
         "keychain", "problem", "other users may read"},
        {"half a sign-in",
         [](Doctor&, const fs::path& folder) {
             FileKeychain(folder / "keychain.json")
                 .write({{KeychainStore::Key::masterKey, KRCrypto::SecretBytes::copyOf("key")}});
         },
         "sign-in", "problem", "only a part"},
        {"nobody signed in", [](Doctor&, const fs::path&) {}, "sign-in", "warning", "nobody is signed in"},
        {"sign-in withdrawn",
         [](Doctor& doctor, const fs::path&) {
             doctor.signUp();
             doctor.service->faults().add("GET /v1/auth/me", Fault::Answer{401, "", {}}, 1, 2);
         },
         "sign-in", "problem", "refuses it, with status 401"},
        {"no TLS", [](Doctor&, const fs::path&) { KRConfiguration::setOverrides("http://example.org", {}); },
         "address", "problem", "in the clear"},
        {"nobody answers",
         [](Doctor&, const fs::path&) { KRConfiguration::setOverrides("http://127.0.0.1:1", {}); }, "service",
         "problem", "does not answer"},
        {"somebody else answers",
         [](Doctor& doctor, const fs::path&) {
             KRConfiguration::setOverrides(doctor.service->baseURL() + "/elsewhere", {});
         },
         "service", "problem", "with status 404"},
        {"clock ahead", [](Doctor& doctor, const fs::path&) { doctor.setServiceClock(-1h); }, "clock",
         "problem", "ahead of the service's"},
        {"clock a little behind", [](Doctor& doctor, const fs::path&) { doctor.setServiceClock(100s); },
         "clock", "warning", "behind the service's"},
    };
    for (const auto& [name, harm, check, level, text] : cases) {
        SCOPED_TRACE(name);
        fs::remove_all(service.container());
        KRConfiguration::setOverrides(service->baseURL(), std::nullopt);
        setServiceClock(0s);
        harm(*this, service.container());
        const auto found = finding(check);
        EXPECT_EQ(found.level, level);
        EXPECT_THAT(found.text, HasSubstr(text));
        EXPECT_NE(found.advice, "");
    }
}

TEST_F(Doctor, NamesTheProcessThatHoldsTheTransfersAndDoesNotAnswer) {
    FileLock queue(SharedContainer::directory("locks") / "queue.lock");
    ASSERT_TRUE(queue.tryLock());
    EXPECT_THAT(finding("processes").text, HasSubstr("process " + std::to_string(::getpid())));
    FileLock helper(SharedContainer::directory("locks") / "app.korvane.transfers.helper.lock");
    ASSERT_TRUE(helper.tryLock());
    const auto found = finding("processes");
    EXPECT_EQ(found.level, "problem");
    EXPECT_EQ(found.advice, "End it: kill " + std::to_string(::getpid()));
}

} // namespace
} // namespace Korvane::Testing
