#include "KorvaneCore/storage/SQLiteDatabase.hpp"

#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/storage/SQLiteError.hpp"

#include <sqlite3.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <limits>
#include <optional>

namespace Korvane {

namespace {

constexpr std::chrono::milliseconds busyTimeout(5000);

constexpr std::size_t rowsTogether = 64; ///< of forEach(), in one result

bool fitsSQLite(std::size_t size) {
    return size <= static_cast<std::size_t>(std::numeric_limits<int>::max());
}

} // namespace

/// A prepared statement with its arguments; finalised with its owner.
class SQLiteDatabase::Statement {
public:
    Statement(sqlite3* handle, const std::string& sql, std::span<const SQLValue> args) : handle_(handle) {
        sqlite3_stmt* statement = nullptr;
        const int code = sqlite3_prepare_v2(handle, sql.c_str(), -1, &statement, nullptr);
        statement_.reset(statement);
        if (code != SQLITE_OK)
            fail(code);
        for (std::size_t i = 0; i < args.size(); ++i)
            bind(static_cast<int>(i + 1), args[i]);
    }

    /// Whether the statement now stands on a row; false once it is done.
    bool step() {
        const int code = sqlite3_step(statement_.get());
        if (code != SQLITE_ROW && code != SQLITE_DONE)
            fail(code);
        return code == SQLITE_ROW;
    }

    [[nodiscard]] sqlite3_stmt* get() const noexcept { return statement_.get(); }

private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
    };

    struct Binder {
        sqlite3_stmt* statement;
        int position;

        int operator()(std::monostate /*null*/) const { return sqlite3_bind_null(statement, position); }

        int operator()(std::int64_t number) const { return sqlite3_bind_int64(statement, position, number); }

        int operator()(double number) const { return sqlite3_bind_double(statement, position, number); }

        int operator()(const std::string& text) const {
            if (!fitsSQLite(text.size()))
                throw SQLiteError(SQLITE_TOOBIG, sqlite3_errstr(SQLITE_TOOBIG));
            const auto size = static_cast<int>(text.size());
            return sqlite3_bind_text(statement, position, text.data(), size, SQLITE_TRANSIENT);
        }

        int operator()(const std::vector<std::uint8_t>& blob) const {
            if (!fitsSQLite(blob.size())) {
                Log::error("storage", "a blob of 2 GiB or more was given to a statement");
                std::abort();
            }
            // A null pointer would make NULL of an empty blob.
            const void* bytes = blob.empty() ? static_cast<const void*>("") : blob.data();
            const auto size = static_cast<int>(blob.size());
            return sqlite3_bind_blob(statement, position, bytes, size, SQLITE_TRANSIENT);
        }
    };

    void bind(int position, const SQLValue& value) {
        const int code = std::visit(Binder{statement_.get(), position}, value);
        if (code != SQLITE_OK)
            fail(code);
    }

    [[noreturn]] void fail(int code) const { throw SQLiteError(code, sqlite3_errmsg(handle_)); }

    sqlite3* handle_;
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

void SQLiteDatabase::Close::operator()(sqlite3* handle) const noexcept {
    sqlite3_close_v2(handle);
}

SQLiteDatabase::Lock::Lock(const SQLiteDatabase& database) : handle_(database.handle()) {
    if (handle_ == nullptr)
        throw SQLiteError(SQLITE_MISUSE, "closed");
    sqlite3_mutex_enter(sqlite3_db_mutex(handle_));
}

SQLiteDatabase::Lock::~Lock() {
    sqlite3_mutex_leave(sqlite3_db_mutex(handle_));
}

SQLiteDatabase::SQLiteDatabase(std::filesystem::path url, bool readOnly) : url_(std::move(url)) {
    const int mode = readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    // SQLite would open the file named by what comes before the NUL.
    if (url_.native().find('\0') != std::string::npos)
        throw SQLiteError(SQLITE_CANTOPEN, "open failed");
    // Made here, for its owner alone, which SQLite takes over for the files beside it; and without opening
    // it: closing a file would end the locks that other connections of this process hold on it. A file that
    // is there stays as it is, and what is wrong with the path SQLite says.
    if (!readOnly)
        (void)::mknod(url_.c_str(), S_IFREG | S_IRUSR | S_IWUSR, 0);
    sqlite3* handle = nullptr;
    const int code = sqlite3_open_v2(url_.c_str(), &handle, mode | SQLITE_OPEN_FULLMUTEX, nullptr);
    handle_.reset(handle);
    if (code != SQLITE_OK)
        throw SQLiteError(code, handle == nullptr ? "open failed" : sqlite3_errmsg(handle));
    sqlite3_busy_timeout(handle, static_cast<int>(busyTimeout.count()));
    if (readOnly)
        return;
    enterWAL();
    execute("PRAGMA synchronous=NORMAL");
    execute("PRAGMA foreign_keys=ON");
}

/// SQLite's busy timeout does not cover the one change of a new file to WAL: of two processes that create the
/// file together, one would be told SQLITE_BUSY at once. So this waits as long as any other statement would.
void SQLiteDatabase::enterWAL() {
    const auto deadline = std::chrono::steady_clock::now() + busyTimeout;
    while (true) {
        try {
            execute("PRAGMA journal_mode=WAL");
            return;
        } catch (const SQLiteError& error) {
            if (error.code() != SQLITE_BUSY || std::chrono::steady_clock::now() >= deadline)
                throw;
        }
        sqlite3_sleep(1);
    }
}

void SQLiteDatabase::execute(const std::string& sql) {
    const Lock lock(*this);
    char* message = nullptr;
    const int code = sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, &message);
    const std::unique_ptr<char, void (*)(void*)> owner(message, &sqlite3_free);
    if (code != SQLITE_OK)
        throw SQLiteError(code, message == nullptr ? "exec failed" : message);
}

std::vector<SQLRow> SQLiteDatabase::query(const std::string& sql, std::span<const SQLValue> args) {
    const Lock lock(*this);
    Statement statement(handle(), sql, args);
    std::vector<SQLRow> rows;
    std::shared_ptr<SQLResult> result;
    while (statement.step()) {
        // Not before the first step: until then SQLite may compile anew, and columns change.
        if (!result)
            result = std::make_shared<SQLResult>(statement.get());
        rows.emplace_back(result, result->append(statement.get()));
    }
    return rows;
}

void SQLiteDatabase::forEach(const std::string& sql, std::span<const SQLValue> args,
                             const std::function<void(const SQLRow&)>& visit) {
    const Lock lock(*this);
    Statement statement(handle(), sql, args);
    std::shared_ptr<SQLResult> result;
    for (std::size_t row = 0; statement.step(); ++row) {
        // The names of the columns are copied into each result, so it serves several rows.
        if (row % rowsTogether == 0)
            result = std::make_shared<SQLResult>(statement.get());
        visit(SQLRow(result, result->append(statement.get())));
    }
}

int SQLiteDatabase::run(const std::string& sql, std::span<const SQLValue> args) {
    const Lock lock(*this);
    Statement statement(handle(), sql, args);
    while (statement.step()) {
    }
    return sqlite3_changes(handle());
}

void SQLiteDatabase::rollBack() noexcept {
    try {
        execute("ROLLBACK");
    } catch (const std::exception& error) {
        // SQLite may have rolled back by itself; what matters is the error that led here.
        Log::info("storage", error.what());
    }
}

std::int32_t SQLiteDatabase::userVersion() {
    const auto rows = query("PRAGMA user_version");
    return rows.empty() ? 0 : static_cast<std::int32_t>(rows.front().intValue("user_version").value_or(0));
}

void SQLiteDatabase::setUserVersion(std::int32_t version) {
    execute("PRAGMA user_version=" + std::to_string(version));
}

} // namespace Korvane
