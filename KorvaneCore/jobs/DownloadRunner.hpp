#pragma once

#include "KRCrypto/ChunkDecryptor.hpp"
#include "KRCrypto/EntryMeta.hpp"
#include "KorvaneCore/jobs/JobContext.hpp"
#include "KorvaneCore/platform/PartialFile.hpp"
#include "KorvaneCore/queue/JobRunner.hpp"

#include <filesystem>
#include <optional>

namespace Korvane {

/// One run of a download: a file of the service becomes a local one. It is written under a temporary name
/// beside its destination and takes its place whole, checked and on the disk; what a user changed there
/// meanwhile is moved aside first.
class DownloadRunner {
public:
    /// Both outlive the run.
    DownloadRunner(const JobContext& context, TransferRun& run, DownloadJob job);

    /// Throws what steers the queue (see TransferQueue), and what its parts throw.
    asio::awaitable<TransferOutcome::Downloaded> download();

private:
    asio::awaitable<void> findVersion();
    asio::awaitable<void> look();
    void checkRecord() const;
    asio::awaitable<PartialFile> fetch();
    asio::awaitable<std::string> freshURL();
    asio::awaitable<std::optional<std::filesystem::path>> place(PartialFile partial);
    [[nodiscard]] std::filesystem::path temporaryPath() const;
    [[nodiscard]] bool isPlacedAlready(const std::filesystem::path& path, const LocalStat& present) const;

    const JobContext& context_;
    TransferRun& run_;
    DownloadJob job_;
    std::filesystem::path destination_;
    RemoteFile file_;
    DownloadInfo info_;
    KRCrypto::FileMeta meta_{"", "", 0, ""};
    KRCrypto::SecretBytes fileKey_;
    bool ranBefore_; ///< an earlier run may have come to its end unheard
};

} // namespace Korvane
