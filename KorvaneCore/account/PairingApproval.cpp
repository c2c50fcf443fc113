#include "KorvaneCore/account/PairingApproval.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/PairingCrypto.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KorvaneCore/account/PairingDigits.hpp"
#include "KorvaneCore/account/PairingError.hpp"

#include <stdexcept>
#include <string_view>
#include <utility>

namespace Korvane {

namespace {

using Kind = PairingError::Kind;

/// What the service says when another key was announced before.
constexpr std::string_view answeredCode = "pairing_answered";

} // namespace

PairingApproval::PairingApproval(std::shared_ptr<APIClient> api, KRCrypto::MasterKey masterKey)
    : api_(std::move(api)), masterKey_(std::move(masterKey)) {}

asio::awaitable<std::string> PairingApproval::announce(std::string code) {
    const auto pending = co_await api_->pairPending(code);
    if (pending.pairings.size() != 1 || pending.pairings.front().code != code)
        throw PairingError(Kind::unknownCode);
    device_ = pending.pairings.front();
    if (device_.devicePublicKey.size() != KRCrypto::keySize)
        throw KRCrypto::KRCryptoError(KRCrypto::KRCryptoError::InvalidPublicKey{});
    const auto& keys = keys_.emplace(KRCrypto::PairingKeyPair::generate());
    auto digits = PairingDigits::of(keys.publicKey(), device_.devicePublicKey);
    co_await send(keys.publicKey(), {});
    co_return digits;
}

asio::awaitable<void> PairingApproval::approve() {
    if (!keys_)
        throw std::logic_error("approved before it was announced");
    co_await send(keys_->publicKey(),
                  KRCrypto::PairingCrypto::pairSeal(keys_->privateKey(), keys_->publicKey(),
                                                    device_.devicePublicKey, masterKey_));
}

asio::awaitable<void> PairingApproval::decline() {
    if (keys_)
        co_await send({}, {});
}

asio::awaitable<void> PairingApproval::send(KRCrypto::Bytes publicKey, KRCrypto::Bytes encryptedMasterKey) {
    PairApproveRequest request{device_.pairingId, device_.code, std::move(publicKey),
                               std::move(encryptedMasterKey)};
    try {
        co_await api_->pairApprove(std::move(request));
    } catch (const APIError& error) {
        const auto* refusal = error.as<APIError::Server>();
        if (refusal != nullptr && refusal->code == answeredCode)
            throw PairingError(Kind::answered);
        if (error.is<APIError::Expired>() || error.is<APIError::NotFound>())
            throw PairingError(Kind::expired);
        if (error.is<APIError::Forbidden>())
            throw PairingError(Kind::unknownCode);
        throw;
    }
}

} // namespace Korvane
