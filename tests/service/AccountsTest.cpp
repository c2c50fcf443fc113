#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "tests/support/LocalService.hpp"

#include <gtest/gtest.h>

namespace Korvane::Testing {
namespace {

constexpr const char* email = "ann@example.org";
const std::string revoked = "This device was revoked. Sign in again to continue.";

TEST(Accounts, AReusedRefreshTokenRevokesItsDeviceAlone) {
    LocalService service;
    TestDevice first(service);
    TestDevice second(service);
    const auto old = first.signUp(email);
    second.signIn(email);
    service.clock->advance(std::chrono::seconds(900)); // the access token has expired
    EXPECT_EQ(first.failure(first.api()->me()), "");
    EXPECT_EQ(service->faults().calls("POST /v1/auth/refresh"), 1);

    TestDevice thief(service);
    thief.run(thief.api()->setTokens({old.accessToken, old.refreshToken}));
    EXPECT_EQ(thief.failure(thief.api()->me()), revoked);
    EXPECT_EQ(first.failure(first.api()->me()), revoked) << "which of the two is the thief is not known";
    EXPECT_EQ(second.failure(second.api()->me()), "");
}

TEST(Accounts, ARefreshThatGetsNoAnswerIsSentOnceOnly) {
    LocalService service;
    TestDevice device(service);
    device.signUp(email);
    EXPECT_EQ(device.failure(device.api()->me()), "") << "this connection is kept";
    service.clock->advance(std::chrono::seconds(900));
    auto& faults = service->faults();
    const std::string route = "POST /v1/auth/refresh";
    for (const Fault::Kind& fault : {Fault::Kind(Fault::DropBefore{}), Fault::Kind(Fault::DropAfter{})}) {
        const int before = faults.calls(route);
        faults.add(route, fault, 1, 2);
        EXPECT_TRUE(device.failure(device.api()->me()).starts_with("Network error: "));
        EXPECT_EQ(faults.calls(route) - before, 1);
        faults.clear();
        if (std::holds_alternative<Fault::DropBefore>(fault))
            EXPECT_EQ(device.failure(device.api()->me()), "");
        service.clock->advance(std::chrono::seconds(900));
    }
}

TEST(Accounts, TokensOfAnotherServiceAreRefused) {
    LocalService service;
    LocalService other;
    TestDevice device(service);
    TestDevice stranger(other);
    device.signUp(email);
    const auto foreign = stranger.signUp(email);
    device.run(device.api()->setTokens({foreign.accessToken, foreign.refreshToken}));
    EXPECT_EQ(device.failure(device.api()->me()), revoked);
}

TEST(Accounts, AddressesWithoutAnAccountLookLikeOthers) {
    LocalService service;
    TestDevice device(service);
    device.signUp(email);
    const auto params = device.run(device.api()->authParams("nobody@example.org"));
    EXPECT_EQ(params.kdfSalt.size(), 16U);
    EXPECT_EQ(params, device.run(device.api()->authParams(" Nobody@Example.org ")));
    EXPECT_NE(params, device.run(device.api()->authParams("nobody2@example.org")));
    const auto begun = device.run(device.api()->recoveryBegin("nobody@example.org"));
    EXPECT_EQ(begun.wrappedMasterKeyRecovery.size(), 61U);
    EXPECT_EQ(begun.wrappedMasterKeyRecovery[0], 1);
}

TEST(Accounts, GuessingIsSlowedDown) {
    LocalService service([](ServiceSettings& settings) { settings.credentialAttemptsPerMinute = 3; });
    TestDevice device(service);
    device.signUp(email);
    LoginRequest wrong;
    wrong.email = email;
    wrong.authKey = KRCrypto::SecretBytes(32);
    wrong.deviceName = "guesser";
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(device.failure(device.api()->login(wrong)), "Not authorised. Please sign in again.");
    try {
        device.run(device.api()->login(wrong));
        ADD_FAILURE() << "a fourth guess in a minute";
    } catch (const APIError& error) {
        ASSERT_TRUE(error.is<APIError::RateLimited>());
        EXPECT_EQ(error.as<APIError::RateLimited>()->retryAfter, 60.0);
    }
    service.clock->advance(std::chrono::seconds(60));
    EXPECT_NO_THROW(device.signIn(email));
}

TEST(Accounts, SignUpFollowsTheServicesMode) {
    LocalService service([](ServiceSettings& settings) {
        settings.signupMode = SignUpAvailability::Mode::invite;
        settings.inviteCode = "welcome";
    });
    TestDevice device(service);
    EXPECT_EQ(device.run(device.api()->authParams(email)).signupMode, "invite");
    EXPECT_THROW(device.signUp(email), APIErrorInfo);
}

TEST(Accounts, PairingHandsOverOnceAndInTime) {
    LocalService service;
    TestDevice approver(service);
    TestDevice fresh(service);
    approver.signUp(email);
    const auto start = [&] {
        return fresh.run(fresh.api()->pairStart({KRCrypto::Bytes(32, 1), "fresh", Platform::macos}));
    };
    const auto poll = [&](const PairStartResponse& pairing) {
        return fresh.api()->pairPoll(pairing.pairingId, pairing.code, pairing.pollSecret);
    };
    const auto approve = [&](const PairStartResponse& pairing, const std::string& code) {
        return approver.api()->pairApprove(
            {pairing.pairingId, code, KRCrypto::Bytes(32, 2), KRCrypto::Bytes(61, 3)});
    };
    const auto pairing = start();
    EXPECT_EQ(fresh.run(poll(pairing)).status, "pending");
    EXPECT_EQ(approver.run(approver.api()->pairPending({})).pairings.size(), 0U)
        << "signed-out devices are not listed";
    ASSERT_EQ(approver.run(approver.api()->pairPending(pairing.code)).pairings.size(), 1U);
    EXPECT_EQ(approver.failure(approve(pairing, "00000000")), "Forbidden");
    EXPECT_EQ(fresh.failure(fresh.api()->pairPoll(pairing.pairingId, pairing.code, "guess")), "Forbidden");
    approver.run(approve(pairing, pairing.code));
    EXPECT_EQ(approver.failure(approve(pairing, pairing.code)), "Expired");
    const auto done = fresh.run(poll(pairing));
    EXPECT_EQ(done.status, "approved");
    EXPECT_EQ(done.encryptedMasterKey, KRCrypto::Bytes(61, 3));
    fresh.run(fresh.api()->setTokens({done.accessToken.value(), done.refreshToken.value()}));
    EXPECT_EQ(fresh.run(fresh.api()->me()).user.email, email);
    EXPECT_EQ(fresh.failure(poll(pairing)), "Expired");

    const auto late = start();
    service.clock->advance(std::chrono::seconds(600));
    EXPECT_EQ(approver.failure(approve(late, late.code)), "Expired");
}

TEST(Accounts, AnAnnouncedPairingIsItsApproversAlone) {
    LocalService service;
    TestDevice approver(service);
    TestDevice stranger(service);
    TestDevice fresh(service);
    approver.signUp(email);
    stranger.signUp("cem@example.org");
    const auto pairing =
        fresh.run(fresh.api()->pairStart({KRCrypto::Bytes(32, 1), "fresh", Platform::macos}));
    const auto answer = [&](TestDevice& by, std::uint8_t key, std::size_t sealed) {
        return by.failure(by.api()->pairApprove(
            {pairing.pairingId, pairing.code, KRCrypto::Bytes(32, key), KRCrypto::Bytes(sealed, 3)}));
    };
    const auto poll = [&] {
        return fresh.run(fresh.api()->pairPoll(pairing.pairingId, pairing.code, pairing.pollSecret));
    };
    EXPECT_EQ(answer(approver, 2, 0), "");
    EXPECT_EQ(answer(approver, 2, 0), "") << "said again";
    const auto announced = poll();
    EXPECT_EQ(announced.status, "announced");
    EXPECT_EQ(announced.approverPublicKey, KRCrypto::Bytes(32, 2));
    EXPECT_EQ(announced.encryptedMasterKey, std::nullopt);
    EXPECT_EQ(announced.accessToken, std::nullopt);
    for (const std::size_t sealed : {0U, 61U}) {
        EXPECT_NE(answer(approver, 9, sealed), "") << "another key";
        EXPECT_NE(answer(stranger, 2, sealed), "") << "another user";
    }
    EXPECT_EQ(answer(approver, 2, 61), "");
    EXPECT_EQ(answer(approver, 2, 61), "Expired");
    EXPECT_EQ(poll().status, "approved");
}

TEST(Accounts, DeletingAnAccountLeavesNothingOfIt) {
    LocalService service;
    TestDevice device(service);
    const auto root = device.signUp(email).user.rootFolderId;
    device.upload(root, "file", std::string(20, 'x'), 100, "blob");
    DeleteAccountRequest proof;
    EXPECT_NE(device.failure(device.api()->deleteAccount(proof)), "");
    proof.authKey = KRCrypto::SecretBytes::copyOf("password");
    proof.authKey->resize(32);
    device.run(device.api()->deleteAccount(proof));
    EXPECT_EQ(device.failure(device.api()->me()), revoked);
    EXPECT_TRUE(std::filesystem::is_empty(service.folder() / "blobs"));
    EXPECT_NO_THROW(device.signUp(email));
}

} // namespace
} // namespace Korvane::Testing
