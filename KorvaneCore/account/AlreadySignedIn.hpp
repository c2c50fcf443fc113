#pragma once

#include <exception>

namespace Korvane {

/// A sign-in, of whatever kind, on a device that has one: it would take another account's place.
class AlreadySignedIn : public std::exception {
public:
    [[nodiscard]] const char* what() const noexcept override {
        return "This device is signed in already. Sign out first.";
    }
};

} // namespace Korvane
