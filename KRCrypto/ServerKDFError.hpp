#pragma once

#include <exception>

namespace KRCrypto {

// The server asked for Argon2 parameters outside the bounds an account accepts, so nothing was derived.
class ServerKDFError : public std::exception {
public:
    const char* what() const noexcept override {
        return "The server asked for unsafe password settings, so nothing was sent. Please contact "
               "support@korvane.app.";
    }

    friend bool operator==(const ServerKDFError&, const ServerKDFError&) noexcept { return true; }
};

} // namespace KRCrypto
