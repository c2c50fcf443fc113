#pragma once

#include <exception>

namespace Korvane {

/// Why a share cannot be made or opened. what() is the sentence users are shown.
class ShareError : public std::exception {
public:
    enum class Kind {
        notALink,       ///< the text is no link to a share
        noKey,          ///< the link ends before its key
        unknown,        ///< the service knows no such share
        revoked,        ///< its owner has withdrawn it
        expired,        ///< its time is over
        gone,           ///< what was shared is no longer in the account
        passwordNeeded, ///< none was given
        wrongPassword,  ///< nothing opens with this one
        wrongKey,       ///< nothing opens, and no password is asked for
        altered,        ///< some of it does not open, or does not fit together
        wholeAccount,   ///< the root folder is not shared
        pastExpiry,     ///< it would have expired before it was made
        badExpiry,      ///< the text says no time
    };

    explicit ShareError(Kind kind) noexcept : kind_(kind) {}

    [[nodiscard]] Kind kind() const noexcept { return kind_; }

    [[nodiscard]] const char* what() const noexcept override;

private:
    Kind kind_;
};

} // namespace Korvane
