#pragma once

#include <exception>

namespace Korvane {

/// A recovery code that reads well and is not this account's.
class WrongRecoveryCode : public std::exception {
public:
    [[nodiscard]] const char* what() const noexcept override {
        return "This recovery code does not belong to the account.";
    }
};

} // namespace Korvane
