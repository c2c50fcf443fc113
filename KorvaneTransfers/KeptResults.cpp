#include "KorvaneTransfers/KeptResults.hpp"

#include "KorvaneCore/background/SessionFiles.hpp"
#include "KorvaneCore/json/KRJSONRecords.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <filesystem>
#include <utility>

namespace Korvane::KeptResults {

namespace {

constexpr std::size_t maxFile = 64 << 20;

} // namespace

std::vector<TransferMessages::TaskResult> take(const std::string& identifier) {
    const auto file = SessionFiles::results(identifier);
    if (!std::filesystem::exists(file))
        return {};
    TransferMessages::Kept kept;
    try {
        kept = KRJSON::read<TransferMessages::Kept>(readFile(file, maxFile));
    } catch (const std::exception& error) {
        Log::error("transfers", std::string("earlier results are lost: ") + error.what());
    }
    std::filesystem::remove(file);
    if (kept.version != TransferMessages::version)
        return {};
    std::int64_t number = 0;
    for (auto& result : kept.results)
        result.task = --number;
    return std::move(kept.results);
}

void leave(const std::string& identifier, std::vector<TransferMessages::TaskResult> results) {
    if (results.empty())
        return;
    TransferMessages::Kept kept;
    kept.results = std::move(results);
    replaceFile(SessionFiles::results(identifier), KRJSON::write(kept));
}

} // namespace Korvane::KeptResults
