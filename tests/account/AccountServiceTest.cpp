#include "KorvaneCore/account/AccountService.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/ServerKDFError.hpp"
#include "KorvaneCore/account/AlreadySignedIn.hpp"
#include "KorvaneCore/account/WrongRecoveryCode.hpp"
#include "KorvaneCore/api/AccountActionError.hpp"
#include "tests/support/LocalService.hpp"

#include <gtest/gtest.h>

namespace Korvane::Testing {
namespace {

constexpr const char* email = "ann@example.org";

/// One device's sign-in, with a container of its own.
struct SignedDevice {
    explicit SignedDevice(const LocalService& service,
                          const std::shared_ptr<KeychainStore>& keychain = nullptr)
        : device(service), account(device.api(), keychain ? keychain : device.keychain(), "test") {}

    TestDevice device;
    AccountService account;
};

TEST(AccountServiceTest, TheMasterKeyComesBackByEveryRoad) {
    LocalService service;
    SignedDevice first(service);
    const auto code = first.device.run(first.account.signUp(email, "one"));
    const auto key = first.account.masterKey();

    AccountService restored(first.device.api(), first.device.keychain(), "test");
    EXPECT_TRUE(first.device.run(restored.restoreSession()));
    EXPECT_EQ(restored.masterKey(), key);
    EXPECT_EQ(restored.session(), first.account.session());

    first.device.run(first.account.changePassword("one", "two"));
    SignedDevice second(service);
    EXPECT_THROW(second.device.run(second.account.signIn(email, "one")), AccountActionError);
    second.device.run(second.account.signIn(email, "two"));
    EXPECT_EQ(second.account.masterKey(), key);

    const auto newCode = second.device.run(second.account.rotateRecoveryKey("two"));
    SignedDevice third(service);
    EXPECT_THROW(third.device.run(third.account.recover(email, code, "three")), WrongRecoveryCode);
    third.device.run(third.account.recover(email, newCode, "three"));
    EXPECT_EQ(third.account.masterKey(), key);
    EXPECT_THROW(third.device.run(third.account.signIn(email, "three")), AlreadySignedIn);
    EXPECT_THROW(third.device.run(third.account.signUp("cem@example.org", "four")), AlreadySignedIn);
    EXPECT_THROW(third.device.run(third.account.recover(email, newCode, "four")), AlreadySignedIn);
    EXPECT_EQ(service->faults().calls("POST /v1/auth/signup"), 1);
    third.device.run(third.account.signOut());
    third.device.run(third.account.signIn(email, "three"));
}

TEST(AccountServiceTest, WrongSecretsAreTheirOwnErrors) {
    LocalService service;
    SignedDevice signedIn(service);
    auto& [device, account] = signedIn;
    const std::string code(device.run(account.signUp(email, "right")).text());
    EXPECT_EQ(device.failure(account.changePassword("wrong", "new")), "The current password is wrong.");
    EXPECT_EQ(device.failure(account.rotateRecoveryKey("wrong")), "The current password is wrong.");
    SignedDevice outside(service);
    auto& [other, entering] = outside;
    EXPECT_EQ(other.failure(entering.signIn(email, "wrong")), "Wrong e-mail address or password.");
    EXPECT_EQ(other.failure(entering.signIn("nobody@example.org", "right")),
              "Wrong e-mail address or password.");
    EXPECT_EQ(other.failure(entering.recover(email, std::string_view(code).substr(1), "new")),
              "Invalid recovery code");
    EXPECT_EQ(service->faults().calls("POST /v1/auth/recovery/begin"), 0)
        << "a bad code asks the server nothing";
    EXPECT_EQ(other.failure(entering.recover("nobody@example.org", std::string_view(code), "new")),
              "This recovery code does not belong to the account.");
    EXPECT_EQ(service->faults().calls("POST /v1/auth/recovery/complete"), 0);
    EXPECT_EQ(service->faults().calls("POST /v1/auth/refresh"), 0)
        << "a refused password is no refused token";
    EXPECT_NO_THROW(device.run(device.api()->me())) << "still signed in";
}

TEST(AccountServiceTest, NothingIsSentForUnsafePasswordSettings) {
    for (const AuthParams::Argon2 unsafe : {AuthParams::Argon2{65535, 3, 1, 32},
                                            {65536, 2, 1, 32},
                                            {65536, 3, 0, 32},
                                            {65536, 3, 65, 32},
                                            {65536, 3, 1, 64}}) {
        LocalService service([&](ServiceSettings& settings) { settings.argon2 = unsafe; });
        SignedDevice signedIn(service);
        auto& [device, account] = signedIn;
        EXPECT_THROW(device.run(account.signUp(email, "password")), KRCrypto::ServerKDFError);
        EXPECT_THROW(device.run(account.signIn(email, "password")), KRCrypto::ServerKDFError);
        for (const auto* route : {"POST /v1/auth/signup", "POST /v1/auth/login"})
            EXPECT_EQ(service->faults().calls(route), 0) << route;
    }
}

TEST(AccountServiceTest, SigningOutForgetsEverythingEvenOffline) {
    LocalService service;
    SignedDevice signedIn(service);
    auto& [device, account] = signedIn;
    device.run(account.signUp(email, "password"));
    service->faults().add("POST /v1/auth/logout", Fault::DropBefore{}, 1, 100);
    device.run(account.signOut());
    EXPECT_EQ(account.session(), std::nullopt);
    EXPECT_THROW(static_cast<void>(account.masterKey()), APIError);
    for (const auto key :
         {KeychainStore::Key::masterKey, KeychainStore::Key::accessToken, KeychainStore::Key::refreshToken})
        EXPECT_EQ(device.keychain()->read(key), std::nullopt);
    EXPECT_FALSE(device.run(account.restoreSession()));
}

/// Refuses to store a master key.
class FullKeychain final : public KeychainStore {
public:
    explicit FullKeychain(std::shared_ptr<KeychainStore> below) : below_(std::move(below)) {}

    std::optional<KRCrypto::SecretBytes> read(Key key) override { return below_->read(key); }

    void write(const std::vector<Item>&) override { throw KeychainError("the keychain is full"); }

    void remove(const std::vector<Key>& keys) override { below_->remove(keys); }

private:
    std::shared_ptr<KeychainStore> below_;
};

TEST(AccountServiceTest, ASignInThatCannotBeStoredLeavesTheDeviceSignedOut) {
    LocalService service;
    SignedDevice signedIn(service);
    auto& [device, account] = signedIn;
    AccountService failing(device.api(), std::make_shared<FullKeychain>(device.keychain()), "test");
    EXPECT_THROW(device.run(failing.signUp(email, "password")), KeychainError);
    EXPECT_FALSE(device.run(account.restoreSession()));
}

} // namespace
} // namespace Korvane::Testing
