#include "KorvaneCore/account/PairingError.hpp"

namespace Korvane {

const char* PairingError::what() const noexcept {
    switch (kind_) {
    case Kind::unknownCode:
        return "No device is waiting with this code. Check it on the new device, or start again there.";
    case Kind::answered:
        return "This pairing was answered already, here or on another device. Start again on the new device.";
    case Kind::expired:
        return "The pairing has expired, was declined or was used. Start again on the new device.";
    case Kind::notConfirmed:
        return "The digits were not confirmed, so nothing was handed over here. When they differed, someone "
               "may stand between the devices.";
    case Kind::unannounced:
        return "A key came before the digits could be compared. It was not accepted; start again.";
    case Kind::otherApprover:
        return "A key came from another device than the one with these digits. It was not accepted; start "
               "again.";
    case Kind::notOpened:
        return "The key that came was not sealed for this device. It was not accepted; start again.";
    case Kind::foreignKey:
        return "The key that came does not open this account's data, so this device was signed out again.";
    }
    return "The pairing failed.";
}

} // namespace Korvane
