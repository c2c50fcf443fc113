#pragma once

#include <exception>
#include <string>
#include <utility>

namespace Korvane {

/// A refusal of an account operation that needs wording of its own. what() is the sentence users are shown.
class AccountActionError : public std::exception {
public:
    enum class Kind { wrongPassword, identityNotLinked };

    AccountActionError(Kind refusal, std::string text) : kind(refusal), message(std::move(text)) {}

    Kind kind;
    std::string message;

    [[nodiscard]] const char* what() const noexcept override { return message.c_str(); }

    friend bool operator==(const AccountActionError& a, const AccountActionError& b) {
        return a.kind == b.kind && a.message == b.message;
    }
};

} // namespace Korvane
