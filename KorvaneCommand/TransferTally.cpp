#include "KorvaneCommand/TransferTally.hpp"

#include "KorvaneCommand/Printable.hpp"

#include <fmt/format.h>

namespace Korvane {

void TransferTally::add(const TransferOutcome& outcome) {
    if (const auto* upload = outcome.as<TransferOutcome::Uploaded>()) {
        const bool isNewContent = upload->job.uploadId.has_value();
        ++sentFiles;
        sentBytes += upload->job.plainSize.value_or(0);
        sentParts += isNewContent ? upload->file.chunkCount : 0;
        deduplicatedFiles += isNewContent ? 0 : 1;
    } else if (const auto* download = outcome.as<TransferOutcome::Downloaded>()) {
        ++fetchedFiles;
        fetchedBytes += download->file.encryptedSize;
    } else if (outcome.as<TransferOutcome::Failed>() != nullptr) {
        ++failures;
    }
}

std::string TransferTally::text() const {
    auto text = fmt::format("{} files sent, {}, in {} parts", sentFiles,
                            byteCount(static_cast<double>(sentBytes)), sentParts);
    if (deduplicatedFiles > 0)
        text += fmt::format("; the account had the content of {} of them", deduplicatedFiles);
    if (fetchedFiles > 0)
        text += fmt::format("; {} fetched, {}", fetchedFiles, byteCount(static_cast<double>(fetchedBytes)));
    if (failures > 0)
        text += fmt::format("; {} failed", failures);
    return text;
}

} // namespace Korvane
