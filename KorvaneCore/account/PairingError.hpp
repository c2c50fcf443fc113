#pragma once

#include <exception>

namespace Korvane {

/// Why a pairing ended without a sign-in. what() is the sentence users are shown. None of these leaves
/// anything of the pairing on the new device.
class PairingError : public std::exception {
public:
    enum class Kind {
        unknownCode,   ///< no device waits with the code that was typed
        answered,      ///< another attempt to approve it was there first
        expired,       ///< too late, declined by the approver, or collected already
        notConfirmed,  ///< the user does not see the same digits
        unannounced,   ///< a key came before there were digits to compare
        otherApprover, ///< a key came from another device than the digits are of
        notOpened,     ///< what came is not sealed for this pairing
        foreignKey,    ///< the master key opens nothing of the account it came with
    };

    explicit PairingError(Kind kind) noexcept : kind_(kind) {}

    [[nodiscard]] Kind kind() const noexcept { return kind_; }

    [[nodiscard]] const char* what() const noexcept override;

    bool operator==(const PairingError& other) const noexcept { return kind_ == other.kind_; }

private:
    Kind kind_;
};

} // namespace Korvane
