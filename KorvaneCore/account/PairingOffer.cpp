#include "KorvaneCore/account/PairingOffer.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/PairingCrypto.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KorvaneCore/account/PairingDigits.hpp"
#include "KorvaneCore/account/PairingError.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

namespace Korvane {

namespace {

using Kind = PairingError::Kind;

constexpr std::chrono::seconds pollInterval{1};

/// Whatever a server says: the longer the digits stay open, the longer it could look for keys that match
/// them.
constexpr std::chrono::seconds longestPairing{600};

constexpr const char* pending = "pending";
constexpr const char* announced = "announced";
constexpr const char* approved = "approved";

/// As far as this device's clock can tell; one that is wrong leaves the end to the service.
std::chrono::seconds lifetime(const PairStartResponse& pairing, Clock::Time now) {
    if (!pairing.expiresAt || *pairing.expiresAt <= now)
        return longestPairing;
    return std::min(longestPairing, std::chrono::ceil<std::chrono::seconds>(*pairing.expiresAt - now));
}

/// People type it on another device, so it is nothing but a number.
bool isCode(std::string_view code) {
    constexpr std::size_t length = 8;
    return code.size() == length && code.find_first_not_of("0123456789") == std::string_view::npos;
}

template <class T>
T required(std::optional<T> value, const char* key) {
    if (!value)
        throw APIError(APIError::Decoding{std::string("PairPollResponse: ") + key + " is missing"});
    return std::move(*value);
}

[[noreturn]] void throwUnexpected(const PairPollResponse& response) {
    throw APIError(APIError::Decoding{"PairPollResponse.status: unexpected \"" + response.status + "\""});
}

} // namespace

PairingOffer::PairingOffer(std::shared_ptr<APIClient> api, std::shared_ptr<Clock> clock,
                           std::string deviceName)
    : api_(std::move(api)), clock_(std::move(clock)), deviceName_(std::move(deviceName)) {}

asio::awaitable<PairingOffer::Invitation> PairingOffer::start() {
    PairStartRequest request;
    request.devicePublicKey = keys_.publicKey();
    request.deviceName = deviceName_;
    pairing_ = co_await api_->pairStart(std::move(request));
    if (!isCode(pairing_.code))
        throw APIError(APIError::Decoding{"PairStartResponse.code: expected 8 digits"});
    const auto validFor = lifetime(pairing_, clock_->now());
    deadline_ = clock_->monotonic() + validFor;
    co_return Invitation{pairing_.code, validFor};
}

// One answer of the service, whatever it takes to get one in time.
asio::awaitable<PairPollResponse> PairingOffer::poll() {
    for (;;) {
        if (clock_->monotonic() >= deadline_)
            throw PairingError(Kind::expired);
        try {
            co_return co_await api_->pairPoll(pairing_.pairingId, pairing_.code, pairing_.pollSecret);
        } catch (const APIError& error) {
            if (error.is<APIError::Expired>() || error.is<APIError::NotFound>())
                throw PairingError(Kind::expired);
            if (!error.isRetryable())
                throw;
        }
        co_await clock_->sleep(pollInterval);
    }
}

asio::awaitable<PairPollResponse> PairingOffer::pollWhile(const char* status) {
    for (;;) {
        auto response = co_await poll();
        if (response.status != status)
            co_return response;
        if (response.approverPublicKey.value_or(KRCrypto::Bytes()) != approverPublicKey_)
            throw PairingError(Kind::otherApprover);
        co_await clock_->sleep(pollInterval);
    }
}

asio::awaitable<std::string> PairingOffer::answer() {
    auto response = co_await pollWhile(pending);
    if (response.status == approved)
        throw PairingError(Kind::unannounced);
    if (response.status != announced)
        throwUnexpected(response);
    approverPublicKey_ = required(std::move(response.approverPublicKey), "approverPublicKey");
    if (approverPublicKey_.size() != KRCrypto::keySize)
        throw APIError(APIError::Decoding{"PairPollResponse.approverPublicKey: expected 32 bytes"});
    co_return PairingDigits::of(approverPublicKey_, keys_.publicKey());
}

KRCrypto::MasterKey PairingOffer::opened(const PairPollResponse& response) const {
    const auto sealed = required(response.encryptedMasterKey, "encryptedMasterKey");
    try {
        return KRCrypto::PairingCrypto::pairOpen(keys_.privateKey(), approverPublicKey_, keys_.publicKey(),
                                                 sealed);
    } catch (const KRCrypto::KRCryptoError&) {
        throw PairingError(Kind::notOpened);
    }
}

asio::awaitable<void> PairingOffer::accept(AccountService& account, std::function<void()> beforeSignIn) {
    auto response = co_await pollWhile(announced);
    if (response.status != approved)
        throwUnexpected(response);
    if (response.approverPublicKey != approverPublicKey_)
        throw PairingError(Kind::otherApprover);
    auto key = opened(response);
    AuthResponse signIn;
    signIn.user = required(std::move(response.user), "user");
    signIn.device = required(std::move(response.device), "device");
    signIn.accessToken = required(std::move(response.accessToken), "accessToken");
    signIn.refreshToken = required(std::move(response.refreshToken), "refreshToken");
    beforeSignIn();
    co_await account.enterPaired(std::move(signIn), std::move(key));
}

} // namespace Korvane
