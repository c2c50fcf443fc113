#pragma once

#include "KorvaneCore/api/APICall.hpp"
#include "KorvaneCore/api/AccessTokens.hpp"
#include "KorvaneCore/api/ByteRange.hpp"
#include "KorvaneCore/api/records/Account.hpp"
#include "KorvaneCore/api/records/Changes.hpp"
#include "KorvaneCore/api/records/Entries.hpp"
#include "KorvaneCore/api/records/Pairing.hpp"
#include "KorvaneCore/api/records/PublicShares.hpp"
#include "KorvaneCore/api/records/Shares.hpp"
#include "KorvaneCore/api/records/SingleSignOn.hpp"
#include "KorvaneCore/api/records/Uploads.hpp"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Korvane {

/// The one object through which a process talks to the service.
///
/// Operations are coroutines on the caller's executor, from any thread, many at once; what they share lives
/// on a strand of the client's own executor, which must have threads to run on. The client must outlive the
/// calls made on it. A cancelled caller gets APIError::Cancelled.
///
/// They throw APIError; the whole APIErrorInfo where an operation says so; and KeychainError when the tokens
/// cannot be read. An identifier that is none is refused by the call itself, before it is awaited, or by the
/// first await. An access token is refreshed when it is about to expire and when the server refuses it.
class APIClient {
public:
    using AuthFailureHandler = AccessTokens::FailureHandler;

    /// Without a session the client makes a CurlSession of its own.
    APIClient(const asio::any_io_executor& executor, KRConfiguration configuration,
              std::shared_ptr<KeychainStore> keychain, std::shared_ptr<HTTPSession> session = nullptr,
              std::shared_ptr<Clock> clock = systemClock());
    APIClient(const APIClient&) = delete;
    APIClient& operator=(const APIClient&) = delete;
    ~APIClient() = default;

    // Sign-in state.

    /// Told on the client's strand, once for each failure, that the sign-in is no longer usable. The stored
    /// tokens stay; whoever listens decides what to clear. An empty handler clears it.
    asio::awaitable<void> setAuthFailureHandler(AuthFailureHandler handler);

    /// Stores a new pair in the keychain and uses it. Waits for a refresh under way for up to 20 s; one that
    /// takes longer ends without effect. Throws KeychainError.
    asio::awaitable<void> setTokens(TokenPair pair);

    /// Forgets the pair, in the keychain too. Waits as setTokens(). Throws KeychainError.
    asio::awaitable<void> clearTokens();

    asio::awaitable<bool> hasTokens();

    /// A usable access token. Throws APIError::NotSignedIn without tokens.
    asio::awaitable<SecretText> currentAccessToken();

    // Account and sessions. signup, deleteAccount, rotateRecoveryKey and the single sign-on calls other than
    // ssoConfig throw APIErrorInfo, as does changePassword when the current password is refused.
    asio::awaitable<AuthParams> authParams(std::string email);
    asio::awaitable<AuthResponse> signup(SignupRequest request);
    asio::awaitable<AuthResponse> login(LoginRequest request);
    asio::awaitable<void> logout();
    asio::awaitable<MeResponse> me();
    asio::awaitable<RecoveryBeginResponse> recoveryBegin(std::string email);
    asio::awaitable<AuthResponse> recoveryComplete(RecoveryCompleteRequest request);
    asio::awaitable<void> changePassword(ChangePasswordRequest request);
    asio::awaitable<void> deleteAccount(DeleteAccountRequest proof);
    asio::awaitable<void> rotateRecoveryKey(RotateRecoveryRequest request);
    asio::awaitable<Usage> usage();
    asio::awaitable<SSOConfig> ssoConfig();
    asio::awaitable<AuthResponse> ssoLogin(SSOLoginRequest request);
    asio::awaitable<AuthResponse> ssoSignup(SSOSignupRequest request);
    asio::awaitable<IdentitiesResponse> linkIdentity(LinkIdentityRequest request);
    asio::awaitable<IdentitiesResponse> unlinkIdentity(SSOProvider provider, DeleteAccountRequest proof);
    asio::awaitable<RecoveryWrappedKeyResponse> recoveryWrappedKey();

    // Pairing. pairStart and pairPoll are for a device that is not signed in yet.
    asio::awaitable<PairStartResponse> pairStart(PairStartRequest request);
    asio::awaitable<PairStartResponse> pairStartBound(PairStartRequest request);
    asio::awaitable<PairPollResponse> pairPoll(std::string pairingId, std::string code,
                                               SecretText pollSecret);
    asio::awaitable<PendingPairingsResponse> pairPending(std::optional<std::string> code);
    asio::awaitable<void> pairApprove(PairApproveRequest request);

    // Devices.
    asio::awaitable<std::vector<Device>> devices();
    asio::awaitable<void> revokeDevice(std::string id);
    asio::awaitable<Device> updateDevice(std::string id, std::optional<std::string> name,
                                         std::optional<std::string> pushToken);

    // Folders. A page's `nextCursor` is the next call's `cursor`.
    asio::awaitable<RemoteFolder> folder(std::string id);
    asio::awaitable<ChildrenPage> children(std::string of, std::optional<std::string> cursor, int limit);
    /// Every page of a folder in one, without a cursor.
    asio::awaitable<ChildrenPage> allChildren(std::string of);
    asio::awaitable<RemoteFolder> createFolder(CreateFolderRequest request);
    asio::awaitable<RemoteFolder> updateFolder(std::string id, UpdateFolderRequest request);
    asio::awaitable<RemoteFolder> deleteFolder(std::string id);
    asio::awaitable<RemoteFolder> restoreFolder(std::string id);

    // Files and versions.
    asio::awaitable<RemoteFile> file(std::string id);
    asio::awaitable<RemoteFile> createFile(CreateFileRequest request);
    asio::awaitable<RemoteFile> updateFile(std::string id, UpdateFileRequest request);
    asio::awaitable<RemoteFile> deleteFile(std::string id);
    asio::awaitable<RemoteFile> restoreFile(std::string id);
    asio::awaitable<std::vector<FileVersion>> versions(std::string of);
    asio::awaitable<RemoteFile> restoreVersion(std::string fileId, std::int64_t version);
    asio::awaitable<DownloadInfo> downloadInfo(std::string fileId);
    asio::awaitable<void> uploadThumbnail(std::string fileId, KRCrypto::Bytes sealed);
    asio::awaitable<KRCrypto::Bytes> thumbnail(std::string fileId);

    // Trash.
    asio::awaitable<ChildrenPage> trash(std::optional<std::string> cursor, int limit);
    asio::awaitable<TrashRestoreResponse> restoreFromTrash(std::string id);
    asio::awaitable<void> deletePermanently(std::string id);
    asio::awaitable<void> emptyTrash();

    // Uploads.
    asio::awaitable<CreateUploadResponse> createUpload(CreateUploadRequest request);
    asio::awaitable<UploadStatusResponse> uploadStatus(std::string id);
    asio::awaitable<RemoteFile> completeUpload(std::string id, CompleteUploadRequest request);
    asio::awaitable<void> abortUpload(std::string id);

    // Change feed.
    asio::awaitable<ChangesPage> changes(std::int64_t since, int limit);

    // Shares.
    asio::awaitable<Share> createShare(CreateShareRequest request);
    asio::awaitable<std::vector<Share>> shares();
    asio::awaitable<ShareDetail> share(std::string id);
    asio::awaitable<void> updateShareEntries(std::string id, std::vector<ShareEntry> upsert,
                                             std::vector<std::string> remove);
    asio::awaitable<Share> updateShare(std::string id, std::optional<KRJSON::Date> expiresAt);
    asio::awaitable<void> revokeShare(std::string id);

    // What whoever has a link may ask, signed in or not. These throw APIErrorInfo; `reason` is "revoked" in
    // that of a share its owner has revoked.
    asio::awaitable<PublicShare> publicShare(std::string token);
    asio::awaitable<DownloadInfo> publicShareDownload(std::string token, std::string entryId);

    // Pre-signed storage URLs: no token is sent to them. These throw APIErrorInfo.

    /// `data` is borrowed: it must live until this returns or throws. Any 2xx answer is success; one that is
    /// no JSON gives an empty record.
    asio::awaitable<PartUploadResponse> putPart(std::string url, KRCrypto::ByteView data);

    /// Exactly the bytes asked for; another number of them is a retryable APIError::Transport.
    asio::awaitable<KRCrypto::Bytes> getRange(std::string url, ByteRange range);

    /// The same into memory the caller keeps: fills `into`, which is borrowed, with the bytes from `first`
    /// on.
    asio::awaitable<void> getRangeInto(std::string url, std::int64_t first, KRCrypto::MutableBytes into);

private:
    /// Sends a call and decodes its 2xx answer; `void` ignores the answer's body.
    template <class Record>
    asio::awaitable<Record> call(APICall call);

    asio::awaitable<HTTPResponse> perform(APICall call, std::string record);
    asio::awaitable<HTTPResponse> exchange(APICall call);

    const KRConfiguration configuration_;
    const std::shared_ptr<HTTPSession> session_;
    const std::shared_ptr<AccessTokens> tokens_;
};

} // namespace Korvane
