#include "KorvaneCommand/AccountData.hpp"
#include "KorvaneCommand/doctor/Checks.hpp"
#include "KorvaneCore/background/SessionFiles.hpp"
#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/keychain/FileKeychain.hpp"
#include "KorvaneCore/keychain/SecretServiceKeychain.hpp"
#include "KorvaneCore/platform/Bundle.hpp"
#include "KorvaneCore/platform/FileLock.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Inotify.hpp"
#include "KorvaneCore/platform/LocalSocket.hpp"
#include "KorvaneCore/platform/Process.hpp"
#include "KorvaneCore/storage/IndexSchema.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/SQLiteError.hpp"
#include "KorvaneCore/sync/SyncRoots.hpp"

#include <fmt/format.h>

namespace Korvane::Checks {

namespace fs = std::filesystem;
using enum FindingLevel;

namespace {

constexpr std::uintmax_t megabyte = std::uintmax_t{1} << 20;
constexpr std::uintmax_t tooLittleRoom = 64 * megabyte;
constexpr std::uintmax_t littleRoom = 1024 * megabyte;

bool isThere(const fs::path& path) {
    std::error_code unreadable;
    return fs::exists(fs::symlink_status(path, unreadable));
}

Finding room(const fs::path& folder) {
    std::error_code error;
    const auto free = fs::space(folder, error).available;
    if (error)
        return {"free space", warning, "the system does not tell: " + error.message(), ""};
    const auto text = fmt::format("{} MiB are free", free / megabyte);
    if (free < tooLittleRoom)
        return {"free space", problem, text, "Make room on the disk; nothing can be stored."};
    if (free < littleRoom)
        return {"free space", warning, text, "Make room on the disk."};
    return {"free space", ok, text, ""};
}

Finding closedToOthers(const fs::path& folder) {
    try {
        requirePrivateFolder(folder);
    } catch (const FileError&) {
        return {"container", problem, folder.string() + " is no folder of yours alone",
                "Own it, and run: chmod 700 '" + folder.string() + "'"};
    }
    if (!isWritable(folder))
        return {"container", problem, folder.string() + " cannot be written to",
                "Run: chmod 700 '" + folder.string() + "', or make its file system writable."};
    return {"container", ok, folder.string(), ""};
}

/// The whole of SQLite's own quick look at a database.
std::string damageIn(SQLiteDatabase& database) {
    std::string found;
    for (const auto& row : database.query("PRAGMA quick_check(3)"))
        if (const auto text = row.string("quick_check"); text && *text != "ok")
            found += (found.empty() ? "" : "; ") + *text;
    return found;
}

/// What nothing but the index knows.
constexpr const char* lostWithTheIndex = "Files and names come again from the account; synced folders, pins, "
                                         "waiting uploads and the keys of your links do not.";

Finding database(const std::string& name, std::int32_t knownVersion, const std::string& afterwards) {
    const auto file = SharedContainer::location() / name;
    if (!isThere(file))
        return {name, ok, "none yet", ""};
    const auto advice = "Stop every korvane, move '" + file.string() +
                        "' away with its -wal and -shm, and keep it. " + afterwards;
    try {
        SQLiteDatabase opened(file, true);
        if (const auto damage = damageIn(opened); !damage.empty())
            return {name, problem, "damaged: " + damage, advice};
        const auto version = opened.userVersion();
        if (version > knownVersion)
            return {name, warning,
                    fmt::format("version {}, newer than this program's {}", version, knownVersion),
                    "Install the newer korvane."};
        return {name, ok, fmt::format("sound, version {}", version), ""};
    } catch (const SQLiteError& error) {
        return {name, problem, error.what(), advice};
    }
}

Finding keychainFile(FileKeychain& keychain, const fs::path& file) {
    constexpr auto others = fs::perms::group_all | fs::perms::others_all;
    if ((fs::status(file).permissions() & others) != fs::perms::none)
        return {"keychain", problem, "other users may read the keychain file",
                "Run: chmod 600 '" + file.string() + "', then change the password."};
    static_cast<void>(keychain.read(KeychainStore::Key::refreshToken));
    return {"keychain", ok, "a file for you alone, as no desktop keyring was there", ""};
}

std::int64_t foldersBelow(const fs::path& root) {
    std::error_code error;
    std::int64_t count = 1;
    for (fs::recursive_directory_iterator entry(root, fs::directory_options::skip_permission_denied, error),
         end;
         !error && entry != end; entry.increment(error))
        count += entry->is_directory(error) && !entry->is_symlink(error) ? 1 : 0;
    return count;
}

std::vector<SyncRoot> syncRoots() {
    const auto file = SharedContainer::location() / "index.sqlite";
    if (!isThere(file))
        return {};
    auto index = LocalIndex::openReadOnly(file);
    return SyncRoots::all(index);
}

/// "process 12 (korvane)"
std::string processNamed(int process) {
    return fmt::format("process {} ({})", process, Process::name(process));
}

} // namespace

Findings installation() {
    Findings found;
    const auto folder = programPath().parent_path();
    const auto identifier = Bundle::main().identifier();
    if (identifier.empty())
        found.push_back({"installation", problem, "the program's Info.plist is missing",
                         "Install korvane again; its build channel and service are unknown."});
    for (const auto* program : {"korvane-transfers", "korvane-widget"})
        if (!isThere(folder / program))
            found.push_back({"installation", warning, std::string(program) + " is not beside korvane",
                             "Install korvane again."});
    if (found.empty())
        found.push_back({"installation", ok, identifier + " in " + folder.string(), ""});
    return found;
}

Findings container() {
    const auto folder = SharedContainer::location();
    if (!isThere(folder))
        return {{"container", ok, "none yet; signing in makes " + folder.string(), ""}};
    auto first = closedToOthers(folder);
    if (first.level == problem)
        return {std::move(first)};
    return {std::move(first), room(folder)};
}

Findings databases() {
    return {database("index.sqlite", IndexSchema::currentVersion, lostWithTheIndex),
            database("status.sqlite", 0, "It is made anew by korvane run.")};
}

Findings keychain() {
    const auto file = SharedContainer::location() / "keychain.json";
    FileKeychain inFile(file);
    try {
        if (inFile.exists())
            return {keychainFile(inFile, file)};
        if (!SecretServiceKeychain::isOffered())
            return {{"keychain", ok, "no desktop keyring here; secrets will be kept in a file", ""}};
        const auto system = systemKeychain(KRConfiguration::fromBundle(Bundle::main()));
        static_cast<void>(system->read(KeychainStore::Key::refreshToken));
        return {{"keychain", ok, "the desktop's keyring", ""}};
    } catch (const KeychainDamaged& error) {
        return {{"keychain", problem, error.what(), "Run: korvane sign-in EMAIL"}};
    } catch (const std::exception& error) {
        return {{"keychain", problem, error.what(),
                 inFile.exists() ? "Make " + file.string() + " readable for you." : "Unlock the keyring."}};
    }
}

Findings fileEvents() {
    if (!Inotify().isOpen())
        return {{"file events", problem, "no inotify instance is left for this user",
                 "Raise fs.inotify.max_user_instances with sysctl."}};
    std::int64_t folders = 0;
    Findings found;
    try {
        for (const auto& root : syncRoots()) {
            if (isThere(root.path))
                folders += foldersBelow(root.path);
            else
                found.push_back({"file events", problem, "the synced folder " + root.path + " is not there",
                                 "Bring it back, or run: korvane sync remove " + root.id});
        }
    } catch (const SQLiteError&) {
        found.push_back({"file events", warning, "the synced folders are unknown", "See index.sqlite."});
    }
    const auto limit = Inotify::watchLimit();
    if (!limit)
        found.push_back({"file events", warning, "the limit of watches is unknown", ""});
    else if (folders > *limit)
        found.push_back({"file events", problem,
                         fmt::format("{} folders to watch, {} allowed", folders, *limit),
                         "Raise fs.inotify.max_user_watches with sysctl."});
    else if (found.empty())
        found.push_back(
            {"file events", ok, fmt::format("{} folders to watch, {} allowed", folders, *limit), ""});
    return found;
}

Findings processes() {
    const auto folder = SharedContainer::location();
    const auto session = std::string(KRIdentifiers::backgroundSessionIdentifier);
    Findings found;
    if (const auto runner = FileLock::holder(folder / AccountData::lockFile))
        found.push_back({"processes", ok, processNamed(*runner) + " carries out the transfers", ""});
    if (const auto helper =
            FileLock::holder(folder / "locks" / (SessionFiles::helperLock(session) + ".lock"))) {
        try {
            static_cast<void>(
                LocalSocket::connect(folder / SessionFiles::folderName / (session + ".socket")));
            found.push_back({"processes", ok, processNamed(*helper) + " moves parts", ""});
        } catch (const FileError&) {
            found.push_back({"processes", problem,
                             processNamed(*helper) + " holds the background transfers and does not answer",
                             fmt::format("End it: kill {}", *helper)});
        }
    }
    if (found.empty())
        found.push_back({"processes", ok, "none at work here", ""});
    return found;
}

} // namespace Korvane::Checks
