#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/api/records/RemoteFile.hpp"
#include "KorvaneCore/jobs/JobContext.hpp"
#include "KorvaneCore/jobs/SourceContent.hpp"
#include "KorvaneCore/queue/JobRunner.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Korvane {

/// One run of an upload, as its steps share it.
struct UploadWork {
    const JobContext& context;
    TransferRun& run;
    UploadJob job;

    std::shared_ptr<const KRCrypto::MasterKey> masterKey;
    std::shared_ptr<const SourceContent> content; ///< what is sent
    std::string blobId;                           ///< of the content, sealed
    KRCrypto::Bytes wrappedKey;                   ///< of the blob
    KRCrypto::SecretBytes fileKey;
    std::string uploadId; ///< of the session; empty for a blob that the service has

    /// Stores the job, before the next step begins. Throws SQLiteError.
    void save() { run.save(job); }

    [[nodiscard]] std::int64_t chunkCount() const;
    [[nodiscard]] std::int64_t encryptedSize() const;

    /// Whether a file of the service is what this upload has made of it: its answer was lost.
    [[nodiscard]] bool isOwn(const std::optional<RemoteFile>& file) const;

    /// The job makes a new version of that file.
    void baseOn(const RemoteFile& file);
};

} // namespace Korvane
