#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Korvane {

/// A refusal by SQLite, with its own result code and message. what() is "SQLite error <code>: <message>".
class SQLiteError : public std::runtime_error {
public:
    SQLiteError(std::int32_t code, std::string message);

    [[nodiscard]] std::int32_t code() const noexcept { return code_; }

    [[nodiscard]] const std::string& message() const noexcept { return message_; }

    friend bool operator==(const SQLiteError& a, const SQLiteError& b) noexcept {
        return a.code_ == b.code_ && a.message_ == b.message_;
    }

private:
    std::int32_t code_;
    std::string message_;
};

} // namespace Korvane
