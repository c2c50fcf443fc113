#pragma once

#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/PairingKeyPair.hpp"
#include "KorvaneCore/account/AccountService.hpp"
#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/platform/Clock.hpp"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace Korvane {

/// The new device's side of one pairing: it asks a signed-in device for the master key.
///
///   start()    a key pair of this attempt alone, and the code to type on the approving device
///   answer()   waits until that device has announced its key; the digits that both show
///   accept()   once the user sees the same digits there: waits for the sealed key, opens it, signs in
///
/// Until accept() nothing is stored here and nothing but the polling is sent; whoever does not call it has
/// accepted nothing. The service could put keys of its own in the place of both devices': that shows in the
/// digits, and only there.
///
/// Operations are coroutines on the caller's executor, in this order, one at a time. They throw PairingError,
/// APIError, and what AccountService throws. Calls that may be tried again are, until the pairing expires.
class PairingOffer {
public:
    PairingOffer(std::shared_ptr<APIClient> api, std::shared_ptr<Clock> clock, std::string deviceName);

    /// What the user needs on the other device.
    struct Invitation {
        std::string code;
        std::chrono::seconds validFor{}; ///< from now on
    };

    asio::awaitable<Invitation> start();
    asio::awaitable<std::string> answer();

    /// `beforeSignIn` is called when the key has come and opened, before anything is stored; what it throws
    /// leaves nothing behind.
    asio::awaitable<void> accept(AccountService& account, std::function<void()> beforeSignIn = [] {});

private:
    asio::awaitable<PairPollResponse> poll();
    asio::awaitable<PairPollResponse> pollWhile(const char* status);
    [[nodiscard]] KRCrypto::MasterKey opened(const PairPollResponse& response) const;

    const std::shared_ptr<APIClient> api_;
    const std::shared_ptr<Clock> clock_;
    const std::string deviceName_;
    const KRCrypto::PairingKeyPair keys_ = KRCrypto::PairingKeyPair::generate();
    PairStartResponse pairing_;
    Clock::Instant deadline_;
    KRCrypto::Bytes approverPublicKey_; ///< once announced; no other one is accepted
};

} // namespace Korvane
