#pragma once

#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/sync/JobContext.hpp"
#include "KorvaneCore/sync/JobRunner.hpp"
#include "KorvaneCore/sync/PartPlan.hpp"
#include "KorvaneCore/sync/SourceContent.hpp"
#include "KorvaneCore/sync/UploadState.hpp"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

struct SendState;

/// One run of an upload: a local file becomes a sealed blob and a file of the service. Every step stores what
/// it found before the next one begins, so that a later run goes on from there.
///
/// A file key never meets two contents: when the source is not the file that was hashed any more, hash,
/// session and key are given up together.
class UploadRunner {
public:
    /// All three outlive the run.
    UploadRunner(const JobContext& context, TransferRun& run, UploadState& uploads, UploadJob job);

    /// Throws what steers the queue (see TransferQueue), and what its parts throw.
    asio::awaitable<TransferOutcome::Uploaded> upload();

private:
    asio::awaitable<void> hashSource();
    asio::awaitable<std::shared_ptr<const SourceContent>> recordedContent(LocalStat stat);
    asio::awaitable<std::shared_ptr<const SourceContent>> newContent(LocalStat stat);
    asio::awaitable<RemoteFile> store();
    asio::awaitable<void> addThumbnail(const RemoteFile& file);

    asio::awaitable<RemoteFile> storeOnce();
    asio::awaitable<std::optional<PartPlan>> resumeSession();
    asio::awaitable<std::optional<PartPlan>> beginSession();
    asio::awaitable<std::vector<UploadPart>> sessionParts();
    void forgetSession();
    asio::awaitable<std::shared_ptr<const SourceContent>> hashed(LocalStat stat);
    asio::awaitable<void> giveUpContent(LocalStat stat);
    asio::awaitable<void> settleOldContent();
    asio::awaitable<void> endSession(std::string uploadId);
    asio::awaitable<RemoteFile> sendAndComplete(PartPlan plan);
    asio::awaitable<void> sendMissing(PartPlan& plan);
    asio::awaitable<void> sendLane(SendState& state);

    asio::awaitable<RemoteFile> registerFile();
    asio::awaitable<RemoteFile> registerOnce();
    asio::awaitable<void> becomeConflictCopy();
    bool becomeUpdate(const std::optional<RemoteFile>& file);
    void update(const RemoteFile& file);
    [[noreturn]] void folderMissing(const APIError::FolderMissing& missing);
    [[nodiscard]] bool isOwn(const std::optional<RemoteFile>& file) const;
    [[nodiscard]] std::string name() const;

    [[nodiscard]] std::int64_t chunkCount() const;
    [[nodiscard]] std::int64_t encryptedSize() const;

    void save() { run_.save(job_); }

    const JobContext& context_;
    TransferRun& run_;
    UploadState& uploads_;
    UploadJob job_;
    std::shared_ptr<const KRCrypto::MasterKey> masterKey_;
    std::shared_ptr<const SourceContent> content_;
    std::string uploadId_; ///< of the session; empty for a blob that the service has
    KRCrypto::Bytes wrappedKey_;
    KRCrypto::SecretBytes fileKey_;
};

} // namespace Korvane
