#pragma once

#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/sync/JobContext.hpp"
#include "KorvaneCore/sync/JobRunner.hpp"
#include "KorvaneCore/sync/PartPlan.hpp"
#include "KorvaneCore/sync/Turns.hpp"
#include "KorvaneCore/sync/Unchanged.hpp"

#include <memory>
#include <optional>
#include <string>
#include <utility>
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
    /// `contents` are the turns of the contents that are being sent, by blob id. All three outlive the run.
    UploadRunner(const JobContext& context, TransferRun& run, Turns& contents, UploadJob job);

    /// Throws what steers the queue (see TransferQueue), and what its parts throw.
    asio::awaitable<TransferOutcome::Uploaded> upload();

private:
    /// What is sent, as it was hashed.
    struct Content {
        LocalStat stat;
        std::string sha256; ///< in hex
        std::int64_t size = 0;
        std::string blobId;
    };

    asio::awaitable<void> hashSource();
    [[nodiscard]] std::optional<Content> recordedContent() const;
    asio::awaitable<RemoteFile> store();
    asio::awaitable<void> addThumbnail(const RemoteFile& file);

    asio::awaitable<RemoteFile> storeOnce();
    asio::awaitable<std::optional<PartPlan>> resumeSession();
    asio::awaitable<std::optional<PartPlan>> beginSession();
    asio::awaitable<std::vector<UploadPart>> sessionParts();
    void forgetSession();
    asio::awaitable<void> giveUpContent();
    asio::awaitable<void> settleOldContent();
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

    template <class Work>
    auto reading(Work work) const {
        return whileUnchanged(job_.sourcePath, content_.stat, std::move(work));
    }

    void save() { run_.save(job_); }

    const JobContext& context_;
    TransferRun& run_;
    Turns& contents_;
    UploadJob job_;
    std::shared_ptr<const KRCrypto::MasterKey> masterKey_;
    Content content_;
    std::string uploadId_; ///< of the session; empty for a blob that the service has
    KRCrypto::Bytes wrappedKey_;
    KRCrypto::SecretBytes fileKey_;
};

} // namespace Korvane
