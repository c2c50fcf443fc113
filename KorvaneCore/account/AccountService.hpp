#pragma once

#include "KRCrypto/AccountKeys.hpp"
#include "KRCrypto/MasterKey.hpp"
#include "KorvaneCore/account/AccountSession.hpp"
#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/json/SecretText.hpp"
#include "KorvaneCore/keychain/KeychainStore.hpp"
#include "KorvaneCore/platform/Mutex.hpp"

#include <memory>
#include <optional>
#include <string>

namespace Korvane {

/// Signs this device in and out, and holds the master key while it is signed in. The password and what is
/// derived from it live for one call only; the server never sees the password, the recovery code or the
/// master key.
///
/// Operations are coroutines on the caller's executor, callable from any thread, one at a time. Key
/// derivation and the keychain run on worker threads. Besides what is said below they throw APIError and
/// APIErrorInfo, KRCrypto::ServerKDFError before anything derived from a password leaves, KRCryptoError,
/// KeychainError and FileError. Every way in throws AlreadySignedIn, before anything is asked, on a device
/// that is signed in. A sign-in that is refused leaves the device as it was; one that cannot be stored leaves
/// it signed out. Sign-ins of several processes at once are kept apart by their callers.
class AccountService {
public:
    /// `service` is the address that the client asks, where it is another than the configured one: a sign-in
    /// makes it the configured one, before its tokens are stored, so that they are never sent to the other.
    AccountService(std::shared_ptr<APIClient> api, std::shared_ptr<KeychainStore> keychain,
                   std::string deviceName, std::optional<std::string> service = std::nullopt);

    /// Throws AlreadySignedIn. A damaged keychain holds no sign-in; the next one sets it aside.
    asio::awaitable<void> requireSignedOut() const;

    /// Makes an account and signs in to it. The result is the recovery code, which nothing else can show
    /// again.
    asio::awaitable<SecretText> signUp(std::string email, SecretText password,
                                       std::optional<std::string> inviteCode = std::nullopt);

    /// Throws AccountActionError (wrongPassword).
    asio::awaitable<void> signIn(std::string email, SecretText password);

    /// Sets a new password with the recovery code and signs in. Throws WrongRecoveryCode, or KRCryptoError
    /// for a text that is no recovery code, before anything derived from it is sent.
    asio::awaitable<void> recover(std::string email, SecretText recoveryCode, SecretText newPassword);

    /// Signs in with what an approving device handed over (see PairingOffer). Throws PairingError
    /// (foreignKey), signed out again, when the account has something in its root folder and the key opens
    /// none of it.
    asio::awaitable<void> enterPaired(AuthResponse response, KRCrypto::MasterKey key);

    /// Throws AccountActionError (wrongPassword).
    asio::awaitable<void> changePassword(SecretText current, SecretText replacement);

    /// A new recovery code in place of the old one. Throws AccountActionError (wrongPassword).
    asio::awaitable<SecretText> rotateRecoveryKey(SecretText password);

    /// Takes up the sign-in that the keychain holds. Whether there is one.
    asio::awaitable<bool> restoreSession();

    /// Forgets tokens, keys, session and what the widgets show here, also where only a part of them is left
    /// or the keychain is damaged, and withdraws the device's sign-in at the server; when that is not
    /// possible, a warning is logged and the device stays in the account's list.
    asio::awaitable<void> signOut();

    [[nodiscard]] std::optional<AccountSession> session() const KR_EXCLUDES(mutex_);
    /// The same. Throws APIError (NotSignedIn) without one.
    [[nodiscard]] AccountSession requiredSession() const;

    /// Throws APIError (NotSignedIn).
    [[nodiscard]] KRCrypto::MasterKey masterKey() const KR_EXCLUDES(mutex_);

private:
    asio::awaitable<AuthParams> safeParams(std::string email) const;
    asio::awaitable<KRCrypto::PasswordKeys> keysOf(const SecretText& password) const;
    asio::awaitable<void> enter(AuthResponse response, KRCrypto::MasterKey key);
    asio::awaitable<bool> isRefused(KRCrypto::MasterKey key, std::string rootFolderId) const;
    void set(std::optional<AccountSession> session, std::optional<KRCrypto::MasterKey> key)
        KR_EXCLUDES(mutex_);

    const std::shared_ptr<APIClient> api_;
    const std::shared_ptr<KeychainStore> keychain_;
    const std::string deviceName_;
    const std::optional<std::string> service_;

    mutable Mutex mutex_;
    std::optional<AccountSession> session_ KR_GUARDED_BY(mutex_);
    std::optional<KRCrypto::MasterKey> masterKey_ KR_GUARDED_BY(mutex_);
};

} // namespace Korvane
