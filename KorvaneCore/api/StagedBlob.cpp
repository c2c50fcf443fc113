#include "KorvaneCore/api/StagedBlob.hpp"

#include "KorvaneCore/platform/Log.hpp"

#include <system_error>

namespace Korvane {

StagedBlob::~StagedBlob() {
    if (file_.empty())
        return;
    std::error_code error;
    std::filesystem::remove(file_, error);
    if (error)
        Log::warning("transfers", "cannot remove a staged file: " + error.message());
}

} // namespace Korvane
