#include "KorvaneCore/account/AccountService.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Random.hpp"
#include "KRCrypto/RecoveryCode.hpp"
#include "KRCrypto/ServerKDFError.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KorvaneCore/account/AlreadySignedIn.hpp"
#include "KorvaneCore/account/PairingError.hpp"
#include "KorvaneCore/account/WrongRecoveryCode.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/api/AccountActionError.hpp"
#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/widget/WidgetStore.hpp"

#include <algorithm>
#include <utility>

namespace Korvane {

namespace {

using KRCrypto::Bytes;
using KRCrypto::KRCryptoError;
using KRCrypto::MasterKey;
using KRCrypto::PasswordKeys;
using KRCrypto::SecretBytes;

constexpr int entriesTried = 20; // of the root folder, with a key that came by pairing

AccountActionError wrongPassword() {
    return {AccountActionError::Kind::wrongPassword, "Wrong e-mail address or password."};
}

AccountActionError wrongCurrentPassword() {
    return {AccountActionError::Kind::wrongPassword, "The current password is wrong."};
}

KRCrypto::Argon2Params paramsOf(const AuthParams& params) {
    return {params.argon2.memoryKib, params.argon2.iterations, params.argon2.parallelism,
            params.argon2.outputLength};
}

asio::awaitable<PasswordKeys> derive(const SecretText& password, Bytes salt, const AuthParams& params) {
    co_return co_await offload([password, salt = std::move(salt), costs = paramsOf(params)] {
        return KRCrypto::deriveFromPassword(password.text(), salt, costs);
    });
}

/// A fresh recovery secret: the code for people, and the keys made of it.
struct Recovery {
    SecretText code;
    KRCrypto::RecoveryKeys keys;
};

Recovery newRecovery() {
    const auto secret = KRCrypto::randomSecret(KRCrypto::keySize);
    return {KRCrypto::formatRecoveryCode(secret).text(), KRCrypto::deriveRecoveryKeys(secret)};
}

/// None when the box does not open with this key.
std::optional<MasterKey> unwrapped(const SecretBytes& key, const Bytes& box,
                                   MasterKey (*unwrap)(KRCrypto::ByteView, KRCrypto::ByteView)) {
    try {
        return unwrap(key, box);
    } catch (const KRCryptoError& error) {
        if (!error.is<KRCryptoError::AuthenticationFailed>())
            throw;
        return std::nullopt;
    }
}

/// What this device is called in the account it was last signed in to, so that signing in again makes no
/// second one of it.
std::optional<std::string> deviceOf(const std::string& email) {
    const auto stored = StoredSession::read();
    return stored && stored->user.email == email ? std::optional(stored->device.id) : std::nullopt;
}

bool opens(const MasterKey& key, const Bytes& meta) {
    try {
        static_cast<void>(key.openMeta(meta));
        return true;
    } catch (const KRCryptoError&) {
        return false;
    }
}

/// A call that proves a password or a code. When the server refuses that, as opposed to the sign-in itself,
/// `refused` is thrown.
template <class T, class Refused>
asio::awaitable<T> proving(asio::awaitable<T> call, Refused refused) {
    try {
        co_return co_await std::move(call);
    } catch (const std::exception& error) {
        if (const auto* api = apiError(error); api != nullptr && api->is<APIError::Unauthorized>())
            throw refused;
        throw;
    }
}

} // namespace

AccountService::AccountService(std::shared_ptr<APIClient> api, std::shared_ptr<KeychainStore> keychain,
                               std::string deviceName, std::optional<std::string> service)
    : api_(std::move(api)),
      keychain_(std::move(keychain)),
      deviceName_(std::move(deviceName)),
      service_(std::move(service)) {}

asio::awaitable<void> AccountService::requireSignedOut() const {
    try {
        if (co_await api_->hasTokens())
            throw AlreadySignedIn();
    } catch (const KeychainDamaged& error) {
        Log::warning("account", error.what());
    }
}

// Everything derived from a password passes here first.
asio::awaitable<AuthParams> AccountService::safeParams(std::string email) const {
    auto params = co_await api_->authParams(std::move(email));
    KRCrypto::requireSafeServerParams(paramsOf(params));
    co_return params;
}

asio::awaitable<SecretText> AccountService::signUp(std::string email, SecretText password,
                                                   std::optional<std::string> inviteCode) {
    co_await requireSignedOut();
    const auto params = co_await safeParams(email);
    const auto recovery = newRecovery();
    auto key = MasterKey::generate();
    SignupRequest request;
    request.kdfSalt = KRCrypto::randomBytes(KRCrypto::saltSize);
    const auto keys = co_await derive(password, request.kdfSalt, params);
    request.email = std::move(email);
    request.authKey = keys.authKey;
    request.wrappedMasterKey = key.wrapWithKek(keys.kek);
    request.wrappedMasterKeyRecovery = key.wrapWithRecovery(recovery.keys.rk);
    request.recoveryAuthKey = recovery.keys.rkAuth;
    request.deviceName = deviceName_;
    request.inviteCode = std::move(inviteCode);
    auto response = co_await api_->signup(std::move(request));
    co_await enter(std::move(response), std::move(key));
    co_return recovery.code;
}

asio::awaitable<void> AccountService::signIn(std::string email, SecretText password) {
    co_await requireSignedOut();
    const auto params = co_await safeParams(email);
    const auto keys = co_await derive(password, params.kdfSalt, params);
    LoginRequest request;
    request.email = std::move(email);
    request.authKey = keys.authKey;
    request.deviceName = deviceName_;
    request.deviceId = co_await offload([email = request.email] { return deviceOf(email); });
    auto response = co_await proving(api_->login(std::move(request)), wrongPassword());
    if (!response.wrappedMasterKey)
        throw APIError(APIError::Decoding{"AuthResponse: wrappedMasterKey: is missing"});
    auto key = unwrapped(keys.kek, *response.wrappedMasterKey, &MasterKey::unwrapWithKek);
    if (!key)
        throw wrongPassword();
    co_await enter(std::move(response), std::move(*key));
}

asio::awaitable<void> AccountService::recover(std::string email, SecretText recoveryCode,
                                              SecretText newPassword) {
    co_await requireSignedOut();
    const auto recovery = KRCrypto::deriveRecoveryKeys(KRCrypto::parseRecoveryCode(recoveryCode.text()));
    const auto params = co_await safeParams(email);
    const auto begun = co_await api_->recoveryBegin(email);
    auto key = unwrapped(recovery.rk, begun.wrappedMasterKeyRecovery, &MasterKey::unwrapWithRecovery);
    if (!key)
        throw WrongRecoveryCode();
    RecoveryCompleteRequest request;
    request.newKdfSalt = KRCrypto::randomBytes(KRCrypto::saltSize);
    const auto keys = co_await derive(newPassword, request.newKdfSalt, params);
    request.email = std::move(email);
    request.recoveryAuthKey = recovery.rkAuth;
    request.newAuthKey = keys.authKey;
    request.newWrappedMasterKey = key->wrapWithKek(keys.kek);
    request.deviceName = deviceName_;
    auto response = co_await proving(api_->recoveryComplete(std::move(request)), WrongRecoveryCode());
    co_await enter(std::move(response), std::move(*key));
}

asio::awaitable<PasswordKeys> AccountService::keysOf(const SecretText& password) const {
    const auto params = co_await safeParams(requiredSession().user.email);
    co_return co_await derive(password, params.kdfSalt, params);
}

asio::awaitable<void> AccountService::changePassword(SecretText current, SecretText replacement) {
    const auto key = masterKey();
    const auto oldKeys = co_await keysOf(current);
    const auto params = co_await safeParams(requiredSession().user.email);
    ChangePasswordRequest request;
    request.newKdfSalt = KRCrypto::randomBytes(KRCrypto::saltSize);
    const auto newKeys = co_await derive(replacement, request.newKdfSalt, params);
    request.currentAuthKey = oldKeys.authKey;
    request.newAuthKey = newKeys.authKey;
    request.newWrappedMasterKey = key.wrapWithKek(newKeys.kek);
    co_await proving(api_->changePassword(std::move(request)), wrongCurrentPassword());
}

asio::awaitable<SecretText> AccountService::rotateRecoveryKey(SecretText password) {
    const auto key = masterKey();
    const auto keys = co_await keysOf(password);
    const auto recovery = newRecovery();
    RotateRecoveryRequest request;
    request.authKey = keys.authKey;
    request.newWrappedMasterKeyRecovery = key.wrapWithRecovery(recovery.keys.rk);
    request.newRecoveryAuthKey = recovery.keys.rkAuth;
    co_await proving(api_->rotateRecoveryKey(std::move(request)), wrongCurrentPassword());
    co_return recovery.code;
}

// Without tokens the device is signed out, so what is left of any goes first, and they come last: whatever
// stops this half-way, one account's tokens never stand beside another one's key or service.
asio::awaitable<void> AccountService::enter(AuthResponse response, MasterKey key) {
    AccountSession session{response.user, response.device};
    co_await api_->clearTokens();
    co_await offload([this, &session, &key] {
        if (service_)
            KRConfiguration::setOverrides(service_, service_);
        StoredSession::write(session);
        keychain_->write({{KeychainStore::Key::masterKey, key.bytes()}});
    });
    co_await api_->setTokens({response.accessToken, response.refreshToken});
    set(std::move(session), std::move(key));
}

// A service that cannot be asked leaves the question open: whoever wants to deceive here can as well show an
// empty folder.
asio::awaitable<bool> AccountService::isRefused(MasterKey key, std::string rootFolderId) const {
    ChildrenPage page;
    try {
        page = co_await api_->children(std::move(rootFolderId), std::nullopt, entriesTried);
    } catch (const APIError& error) {
        if (error.is<APIError::Cancelled>())
            throw;
        Log::warning("account", std::string("the paired key could not be tried: ") + error.what());
        co_return false;
    }
    const bool isOpened =
        std::ranges::any_of(page.files, [&](const auto& file) { return opens(key, file.metaEnc); }) ||
        std::ranges::any_of(
            page.folders, [&](const auto& folder) { return folder.metaEnc && opens(key, *folder.metaEnc); });
    co_return !isOpened && page.files.size() + page.folders.size() > 0;
}

asio::awaitable<void> AccountService::enterPaired(AuthResponse response, MasterKey key) {
    co_await requireSignedOut();
    const auto rootFolderId = response.user.rootFolderId;
    const auto api = KRConfiguration::apiOverride();
    const auto web = KRConfiguration::webOverride();
    co_await enter(std::move(response), key);
    if (!co_await isRefused(key, rootFolderId))
        co_return;
    co_await signOut();
    if (service_)
        KRConfiguration::setOverrides(api, web);
    throw PairingError(PairingError::Kind::foreignKey);
}

asio::awaitable<bool> AccountService::restoreSession() {
    if (!co_await api_->hasTokens())
        co_return false;
    auto session = co_await offload([] { return StoredSession::read(); });
    const auto bytes = co_await offload([this] { return keychain_->read(KeychainStore::Key::masterKey); });
    if (!session || !bytes)
        co_return false;
    set(std::move(session), MasterKey::fromBytes(*bytes));
    co_return true;
}

asio::awaitable<void> AccountService::signOut() {
    set(std::nullopt, std::nullopt);
    try {
        co_await api_->logout();
    } catch (const APIError& error) {
        if (error.is<APIError::Cancelled>())
            throw;
        if (!error.is<APIError::NotSignedIn>())
            Log::warning("account", std::string("signed out here only: ") + error.what());
    } catch (const KeychainDamaged& error) {
        Log::warning("account", std::string("signed out here only: ") + error.what());
    }
    co_await api_->clearTokens();
    co_await offload([this] {
        keychain_->remove({KeychainStore::Key::masterKey});
        StoredSession::remove();
        WidgetStore::clear();
    });
}

std::optional<AccountSession> AccountService::session() const {
    const MutexLock lock(mutex_);
    return session_;
}

AccountSession AccountService::requiredSession() const {
    auto current = session();
    if (!current)
        throw APIError(APIError::NotSignedIn{});
    return *std::move(current);
}

MasterKey AccountService::masterKey() const {
    const MutexLock lock(mutex_);
    if (!masterKey_)
        throw APIError(APIError::NotSignedIn{});
    return *masterKey_;
}

void AccountService::set(std::optional<AccountSession> session, std::optional<MasterKey> key) {
    const MutexLock lock(mutex_);
    session_ = std::move(session);
    masterKey_ = std::move(key);
}

} // namespace Korvane
