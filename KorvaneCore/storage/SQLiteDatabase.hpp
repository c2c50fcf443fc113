#pragma once

#include "KorvaneCore/storage/SQLRow.hpp"
#include "KorvaneCore/storage/SQLValue.hpp"

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

struct sqlite3;

namespace Korvane {

/// One connection to one database file; every operation throws SQLiteError when SQLite refuses. A writer in
/// another process makes a call wait for up to 5 s before SQLITE_BUSY is thrown.
///
/// Callable from any thread: a statement, or a whole transaction, runs before another thread's next call. A
/// database that was moved from is closed, and its operations say so.
class SQLiteDatabase {
public:
    /// Opens the file, for writing unless `readOnly`; a missing one is created for its owner alone (0600), or
    /// refused (SQLITE_CANTOPEN) when read-only. A writer puts the file into WAL mode with synchronous NORMAL
    /// and enforces foreign keys; a reader changes nothing.
    explicit SQLiteDatabase(std::filesystem::path url, bool readOnly = false);

    /// The connection, owned by this object; null once closed.
    [[nodiscard]] sqlite3* handle() const noexcept { return handle_.get(); }

    [[nodiscard]] const std::filesystem::path& url() const noexcept { return url_; }

    /// Runs one or more statements without parameters or results.
    void execute(const std::string& sql);

    /// Runs one statement with its arguments at positions 1, 2, … and gives all rows. More arguments than
    /// placeholders are refused (SQLITE_RANGE), placeholders left over are NULL. What follows the first
    /// statement is not run. Texts go in and come out byte for byte. A blob of 2 GiB or more ends the
    /// process.
    [[nodiscard]] std::vector<SQLRow> query(const std::string& sql, std::span<const SQLValue> args);

    template <SQLBindable... Args>
    [[nodiscard]] std::vector<SQLRow> query(const std::string& sql, const Args&... args) {
        return query(sql,
                     std::span<const SQLValue>(std::array<SQLValue, sizeof...(Args)>{sqlValue(args)...}));
    }

    /// As query(), giving one row after the other to `visit` instead of keeping them all: for answers that
    /// may be large. `visit` must not use this database; a row it keeps keeps a few dozen others.
    void forEach(const std::string& sql, std::span<const SQLValue> args,
                 const std::function<void(const SQLRow&)>& visit);

    /// As query(), passing over any rows; the number of rows changed by the latest INSERT, UPDATE or DELETE.
    int run(const std::string& sql, std::span<const SQLValue> args);

    template <SQLBindable... Args>
    int run(const std::string& sql, const Args&... args) {
        return run(sql, std::span<const SQLValue>(std::array<SQLValue, sizeof...(Args)>{sqlValue(args)...}));
    }

    /// Runs `body` with this database between BEGIN IMMEDIATE and COMMIT and gives its result. When the body
    /// or the commit throws, everything is rolled back and that exception goes on. Transactions do not nest.
    /// The body must not wait for another thread that uses this database.
    template <std::invocable<SQLiteDatabase&> Body>
    std::invoke_result_t<Body, SQLiteDatabase&> transaction(Body&& body) {
        const Lock lock(*this);
        execute("BEGIN IMMEDIATE");
        try {
            if constexpr (std::is_void_v<std::invoke_result_t<Body, SQLiteDatabase&>>) {
                std::forward<Body>(body)(*this);
                execute("COMMIT");
            } else {
                // NOLINTNEXTLINE(misc-const-correctness): a const result would be copied out.
                std::invoke_result_t<Body, SQLiteDatabase&> result = std::forward<Body>(body)(*this);
                execute("COMMIT");
                return result;
            }
        } catch (...) {
            rollBack();
            throw;
        }
    }

    /// The schema version kept in the file; 0 in a new one.
    [[nodiscard]] std::int32_t userVersion();
    void setUserVersion(std::int32_t version);

private:
    struct Close {
        void operator()(sqlite3* handle) const noexcept;
    };

    /// Holds the connection's own mutex: no other thread's statement comes between, so result code, message
    /// and number of changes belong together.
    class Lock {
    public:
        explicit Lock(const SQLiteDatabase& database);
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        ~Lock();

    private:
        sqlite3* handle_;
    };

    class Statement;

    void enterWAL();
    void rollBack() noexcept;

    std::filesystem::path url_;
    std::unique_ptr<sqlite3, Close> handle_;
};

} // namespace Korvane
