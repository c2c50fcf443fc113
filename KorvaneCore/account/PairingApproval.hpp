#pragma once

#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/PairingKeyPair.hpp"
#include "KorvaneCore/api/APIClient.hpp"

#include <memory>
#include <optional>
#include <string>

namespace Korvane {

/// The signed-in device's side of one pairing: it hands the master key to a new device (see PairingOffer).
///
///   announce()  finds the device that shows a code, and sends it the public key of this attempt alone; the
///               digits that both show
///   approve()   once the user sees the same digits there: seals the master key for that device and sends it
///   decline()   otherwise: ends the pairing for the new device too
///
/// The key pair is made after the new device's key is known here, so that who puts himself in between cannot
/// choose his keys with both in view. Until approve() nothing secret has left, sealed or not.
///
/// Operations are coroutines on the caller's executor, in this order. They throw PairingError, APIError, and
/// KRCryptoError (InvalidPublicKey) for a device whose key is none.
class PairingApproval {
public:
    PairingApproval(std::shared_ptr<APIClient> api, KRCrypto::MasterKey masterKey);

    asio::awaitable<std::string> announce(std::string code);
    asio::awaitable<void> approve();
    asio::awaitable<void> decline();

    /// The new device, as the service describes it, once announced: its name and platform are no proof of
    /// anything.
    [[nodiscard]] const PendingPairing& device() const noexcept { return device_; }

private:
    asio::awaitable<void> send(KRCrypto::Bytes publicKey, KRCrypto::Bytes encryptedMasterKey);

    const std::shared_ptr<APIClient> api_;
    const KRCrypto::MasterKey masterKey_;
    PendingPairing device_;
    std::optional<KRCrypto::PairingKeyPair> keys_;
};

} // namespace Korvane
