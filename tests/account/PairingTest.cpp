#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/PairingCrypto.hpp"
#include "KorvaneCore/account/AlreadySignedIn.hpp"
#include "KorvaneCore/account/PairingApproval.hpp"
#include "KorvaneCore/account/PairingDigits.hpp"
#include "KorvaneCore/account/PairingError.hpp"
#include "KorvaneCore/account/PairingOffer.hpp"
#include "KorvaneCore/http/CurlSession.hpp"
#include "tests/support/LocalService.hpp"

#include <gtest/gtest.h>

#include <functional>

namespace Korvane::Testing {
namespace {

using Kind = PairingError::Kind;
using KRCrypto::PairingKeyPair;

constexpr const char* email = "ann@example.org";

/// Time that moves on by as much as its user sleeps.
class SteppingClock final : public Clock {
public:
    explicit SteppingClock(std::shared_ptr<VirtualClock> below) : below_(std::move(below)) {}

    [[nodiscard]] Time now() const override { return below_->now(); }

    [[nodiscard]] Instant monotonic() const override { return below_->monotonic(); }

    asio::awaitable<void> sleep(Duration duration) override {
        below_->advance(duration);
        ++sleeps;
        co_return;
    }

    int sleeps = 0;

private:
    std::shared_ptr<VirtualClock> below_;
};

/// A service that is not to be trusted: what it answers is rewritten on the way.
class LyingSession final : public HTTPSession {
public:
    asio::awaitable<HTTPResponse> send(HTTPRequest request) override {
        const auto url = request.url;
        auto answer = co_await below_.send(std::move(request));
        urls.push_back(url);
        rewrite(url, "/auth/pair/start", answer, start);
        rewrite(url, "/auth/pair/pending", answer, pending);
        if (url.find("/pending") == std::string::npos)
            rewrite(url, "code=", answer, poll);
        rewrite(url, "/children", answer, children);
        co_return answer;
    }

    std::function<void(PairStartResponse&)> start;
    std::function<void(PendingPairingsResponse&)> pending;
    std::function<void(PairPollResponse&)> poll;
    std::function<void(ChildrenPage&)> children;
    std::vector<std::string> urls;

private:
    template <class Record>
    static void rewrite(const std::string& url, std::string_view part, HTTPResponse& answer,
                        const std::function<void(Record&)>& lie) {
        if (!lie || url.find(part) == std::string::npos || answer.status != 200)
            return;
        auto record = KRJSON::read<Record>(KRCrypto::asText(answer.body));
        lie(record);
        const auto text = KRJSON::write(record);
        answer.body.assign(text.begin(), text.end());
    }

    CurlSession below_;
};

KRCrypto::Bytes otherKey() {
    return PairingKeyPair::generate().publicKey();
}

class Pairing : public testing::Test {
protected:
    Pairing() {
        old_.run(oldAccount_.signUp(email, "password"));
        key_ = oldAccount_.masterKey();
        approval_.emplace(old_.api(), *key_);
    }

    /// The kind of pairing error a call ends with.
    template <class T>
    static std::optional<Kind> refusal(TestDevice& device, asio::awaitable<T> call) {
        try {
            device.run(std::move(call));
        } catch (const PairingError& error) {
            return error.kind();
        }
        return std::nullopt;
    }

    void announce() {
        const auto code = new_.run(offer_.start()).code;
        approverDigits_ = old_.run(approval_->announce(code));
        digits_ = new_.run(offer_.answer());
    }

    PairingApproval newApproval() { return {old_.api(), oldAccount_.masterKey()}; }

    /// A folder in the account, so that a key can be tried on something.
    void addFolder() {
        old_.run(old_.api()->createFolder({std::nullopt, oldAccount_.session()->user.rootFolderId,
                                           key_->sealMeta(KRCrypto::FolderMeta("Papers")),
                                           key_->nameBlindIndex("Papers")}));
    }

    void expectNothingStored() {
        for (const auto key : {KeychainStore::Key::masterKey, KeychainStore::Key::accessToken,
                               KeychainStore::Key::refreshToken})
            EXPECT_EQ(new_.keychain()->read(key), std::nullopt);
        EXPECT_EQ(newAccount_.session(), std::nullopt);
        EXPECT_FALSE(new_.run(newAccount_.restoreSession()));
    }

    LocalService service_;
    std::shared_ptr<SteppingClock> clock_ = std::make_shared<SteppingClock>(service_.clock);
    std::shared_ptr<LyingSession> oldNetwork_ = std::make_shared<LyingSession>();
    std::shared_ptr<LyingSession> newNetwork_ = std::make_shared<LyingSession>();
    TestDevice old_{service_, oldNetwork_};
    TestDevice new_{service_, newNetwork_};
    AccountService oldAccount_{old_.api(), old_.keychain(), "old"};
    AccountService newAccount_{new_.api(), new_.keychain(), "new"};
    std::optional<KRCrypto::MasterKey> key_;
    PairingOffer offer_{new_.api(), clock_, "new"};
    std::optional<PairingApproval> approval_;
    std::string approverDigits_;
    std::string digits_;
};

TEST_F(Pairing, HandsTheMasterKeyOverOnceBothHaveConfirmed) {
    addFolder();
    announce();
    EXPECT_EQ(approverDigits_, digits_);
    EXPECT_EQ(digits_.size(), 16U);
    EXPECT_EQ(approval_->device().deviceName, "new");
    old_.run(approval_->approve());
    new_.run(offer_.accept(newAccount_));
    EXPECT_EQ(newAccount_.masterKey(), key_);
    EXPECT_EQ(new_.run(new_.api()->me()).user.email, email);
    AccountService restored(new_.api(), new_.keychain(), "new");
    EXPECT_TRUE(new_.run(restored.restoreSession()));
    EXPECT_THROW(new_.run(newAccount_.requireSignedOut()), AlreadySignedIn);
}

TEST_F(Pairing, AKeyPutInTheOtherDevicesPlaceShowsInTheDigits) {
    oldNetwork_->pending = [](auto& answer) { answer.pairings.at(0).devicePublicKey = otherKey(); };
    announce();
    EXPECT_NE(approverDigits_, digits_);

    oldNetwork_->pending = {};
    newNetwork_->poll = [](auto& answer) { answer.approverPublicKey = otherKey(); };
    PairingOffer offer(new_.api(), clock_, "new");
    auto approval = newApproval();
    approverDigits_ = old_.run(approval.announce(new_.run(offer.start()).code));
    EXPECT_NE(approverDigits_, new_.run(offer.answer()));
    expectNothingStored();
}

TEST_F(Pairing, TheNewDeviceTakesNoKeyButTheOneItsDigitsAreOf) {
    const auto attacker = PairingKeyPair::generate();
    const auto foreign = KRCrypto::MasterKey::generate();

    struct Lie {
        const char* about;
        std::function<void(PairPollResponse&)> poll;
        Kind kind;
    };

    const std::vector<Lie> lies{
        {"the sealed key is altered", [](auto& answer) { answer.encryptedMasterKey->back() ^= 1; },
         Kind::notOpened},
        {"it is cut", [](auto& answer) { answer.encryptedMasterKey->resize(10); }, Kind::notOpened},
        {"another device's key comes with it", [](auto& answer) { answer.approverPublicKey = otherKey(); },
         Kind::otherApprover},
        {"another key is announced afterwards",
         [](auto& answer) {
             answer.status = "announced";
             answer.approverPublicKey = otherKey();
         },
         Kind::otherApprover},
        {"another key is sealed by someone in between",
         [&](auto& answer) {
             answer.encryptedMasterKey = KRCrypto::PairingCrypto::pairSeal(
                 attacker.privateKey(), attacker.publicKey(), otherKey(), foreign);
         },
         Kind::notOpened},
    };
    for (const auto& lie : lies) {
        newNetwork_->poll = {};
        PairingOffer offer(new_.api(), clock_, "new");
        auto approval = newApproval();
        const auto code = new_.run(offer.start()).code;
        static_cast<void>(old_.run(approval.announce(code)));
        static_cast<void>(new_.run(offer.answer()));
        old_.run(approval.approve());
        newNetwork_->poll = lie.poll;
        EXPECT_EQ(refusal(new_, offer.accept(newAccount_)), lie.kind) << lie.about;
        service_.clock->advance(std::chrono::minutes(1)); // attempts are counted by the minute
        expectNothingStored();
    }
}

TEST_F(Pairing, AnOldAttemptOrOneWithoutDigitsIsNotTaken) {
    announce();
    old_.run(approval_->approve());
    std::optional<PairPollResponse> kept;
    newNetwork_->poll = [&](auto& answer) {
        kept = answer;
        answer.encryptedMasterKey.reset();
    };
    EXPECT_EQ(new_.failure([this]() -> asio::awaitable<bool> {
        co_await offer_.accept(newAccount_);
        co_return true;
    }()),
              "Unexpected server response: PairPollResponse: encryptedMasterKey is missing");
    ASSERT_TRUE(kept);

    PairingOffer replayed(new_.api(), clock_, "new");
    static_cast<void>(new_.run(replayed.start()));
    newNetwork_->poll = [&](auto& answer) { answer = *kept; };
    EXPECT_EQ(refusal(new_, replayed.answer()), Kind::unannounced);
    newNetwork_->poll = [&](auto& answer) {
        answer = *kept;
        answer.status = "announced";
    };
    EXPECT_NE(new_.run(replayed.answer()), digits_) << "the old attempt's digits are on no screen";
    newNetwork_->poll = [&](auto& answer) { answer = *kept; };
    EXPECT_EQ(refusal(new_, replayed.accept(newAccount_)), Kind::notOpened);
    expectNothingStored();
}

TEST_F(Pairing, AKeyThatOpensNothingOfTheAccountSignsOutAgain) {
    addFolder();
    PairingApproval wrong(old_.api(), KRCrypto::MasterKey::generate());
    static_cast<void>(old_.run(wrong.announce(new_.run(offer_.start()).code)));
    static_cast<void>(new_.run(offer_.answer()));
    old_.run(wrong.approve());
    EXPECT_EQ(refusal(new_, offer_.accept(newAccount_)), Kind::foreignKey);
    expectNothingStored();
    EXPECT_EQ(old_.run(old_.api()->devices()).size(), 1U) << "the device left the account";
}

TEST_F(Pairing, TheApproverAnnouncesToTheDeviceWithItsCodeOnly) {
    const auto code = new_.run(offer_.start()).code;
    EXPECT_EQ(refusal(old_, approval_->announce(code == "00000000" ? "00000001" : "00000000")),
              Kind::unknownCode);
    oldNetwork_->pending = [](auto& answer) { answer.pairings.at(0).code = "another"; };
    EXPECT_EQ(refusal(old_, approval_->announce(code)), Kind::unknownCode);
    oldNetwork_->pending = [](auto& answer) { answer.pairings.at(0).pairingId = "another"; };
    EXPECT_EQ(refusal(old_, approval_->announce(code)), Kind::expired);
    oldNetwork_->pending = [](auto& answer) { answer.pairings.at(0).devicePublicKey.pop_back(); };
    EXPECT_THROW(static_cast<void>(old_.run(approval_->announce(code))), KRCrypto::KRCryptoError);
    // A point of low order makes every secret zero; no master key is sealed with that.
    oldNetwork_->pending = [](auto& answer) { answer.pairings.at(0).devicePublicKey.assign(32, 0); };
    static_cast<void>(old_.run(approval_->announce(code)));
    EXPECT_THROW(old_.run(approval_->approve()), KRCrypto::KRCryptoError);

    oldNetwork_->pending = {};
    auto late = newApproval();
    EXPECT_EQ(refusal(old_, late.announce(code)), Kind::answered);
    expectNothingStored();
}

TEST_F(Pairing, WhatIsNoCodeIsNotShownAsOne) {
    for (const auto* code : {"", "1234567", "123456789", "12345678\n", "1; rm -rf", "\x1b[31m678"}) {
        newNetwork_->start = [code](auto& answer) { answer.code = code; };
        EXPECT_EQ(new_.failure(offer_.start()),
                  "Unexpected server response: PairStartResponse.code: expected 8 digits");
    }
}

TEST_F(Pairing, WaitsThroughFailuresAndEndsWithThePairing) {
    static_cast<void>(new_.run(offer_.start()));
    service_->faults().add("GET /v1/auth/pair/{pairingId}", Fault::DropBefore{}, 3, 2);
    EXPECT_EQ(refusal(new_, offer_.answer()), Kind::expired);
    EXPECT_EQ(clock_->sleeps, 600);
    expectNothingStored();

    // One that the service keeps open for ever ends here all the same.
    PairingOffer patient(new_.api(), clock_, "new");
    static_cast<void>(new_.run(patient.start()));
    service_->faults().add("GET /v1/auth/pair/{pairingId}", Fault::Answer{200, R"({"status":"pending"})", {}},
                           1, 100'000);
    EXPECT_EQ(refusal(new_, patient.answer()), Kind::expired);
    EXPECT_EQ(clock_->sleeps, 1200);
}

TEST_F(Pairing, WithoutConfirmationNothingIsSentOrStored) {
    announce();
    EXPECT_EQ(service_->faults().calls("POST /v1/auth/pair/approve"), 1) << "the announcement";
    expectNothingStored();
    for (const auto& url : newNetwork_->urls)
        EXPECT_NE(url.find("/v1/auth/pair/"), std::string::npos) << url;
    // The approver goes on alone: the new device, whose user declined, never asks for the key.
    old_.run(approval_->approve());
    expectNothingStored();
    EXPECT_EQ(old_.run(old_.api()->devices()).size(), 1U);

    service_.clock->advance(std::chrono::minutes(10));
    EXPECT_EQ(refusal(new_, offer_.accept(newAccount_)), Kind::expired) << "confirmed too late";
    expectNothingStored();
}

TEST(PairingDigitsTest, AreTheSameHoweverTheyAreTyped) {
    const auto digits = PairingDigits::of(KRCrypto::Bytes(32, 1), KRCrypto::Bytes(32, 2));
    EXPECT_NE(digits, PairingDigits::of(KRCrypto::Bytes(32, 2), KRCrypto::Bytes(32, 1)));
    EXPECT_EQ(PairingDigits::grouped("0123456789012345"), "0123 4567 8901 2345");
    EXPECT_TRUE(PairingDigits::same(PairingDigits::grouped(digits), digits));
    EXPECT_TRUE(PairingDigits::same("0123-4567 89012345", "0123456789012345"));
    for (const auto* typed : {"", "012345678901234", "01234567890123456", "0123456789012346"})
        EXPECT_FALSE(PairingDigits::same(typed, "0123456789012345")) << typed;
}

} // namespace
} // namespace Korvane::Testing
