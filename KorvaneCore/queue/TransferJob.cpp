#include "KorvaneCore/queue/TransferJob.hpp"

#include "KorvaneCore/json/KRJSON.hpp"

#include <string_view>

namespace Korvane {

std::vector<std::uint8_t> transferPayload(const TransferJob& job) {
    const auto text = std::visit([](const auto& value) { return KRJSON::write(value); }, job);
    return {text.begin(), text.end()};
}

TransferJob transferJob(const TransferRecord& record) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): bytes as text
    const std::string_view text(reinterpret_cast<const char*>(record.payload.data()), record.payload.size());
    switch (record.kind) {
    case TransferRecord::Kind::upload:
        return KRJSON::read<UploadJob>(text);
    case TransferRecord::Kind::download:
        return KRJSON::read<DownloadJob>(text);
    }
    throw JSONError("unknown kind of transfer " + std::to_string(static_cast<std::int64_t>(record.kind)));
}

std::optional<TransferJob> readableJob(const TransferRecord& record) {
    try {
        return transferJob(record);
    } catch (const JSONError&) {
        return std::nullopt;
    }
}

std::string sourceOf(const TransferJob& job) {
    const auto* upload = std::get_if<UploadJob>(&job);
    return upload != nullptr ? upload->sourcePath : std::string();
}

const TransferOrigin& originOf(const TransferJob& job) noexcept {
    if (const auto* upload = std::get_if<UploadJob>(&job))
        return upload->origin;
    return std::get_if<DownloadJob>(&job)->origin;
}

} // namespace Korvane
