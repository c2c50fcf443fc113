#pragma once

#include "KorvaneCore/api/APIError.hpp"
#include "KorvaneCore/api/records/RemoteFile.hpp"
#include "KorvaneCore/queue/DownloadJob.hpp"
#include "KorvaneCore/queue/UploadJob.hpp"
#include "KorvaneCore/storage/TransferRecord.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <variant>

namespace Korvane {

/// What became of a transfer.
struct TransferOutcome {
    struct Uploaded {
        UploadJob job; ///< as it ended
        RemoteFile file;
    };

    struct Downloaded {
        DownloadJob job;
        RemoteFile file;
        std::optional<std::filesystem::path> movedAside; ///< where a changed local file went
        LocalStat placed; ///< the file as it was fetched; what lies there by now may be the user's
    };

    /// It waits for the user now.
    struct Failed {
        std::string id;
        TransferRecord::Kind kind = TransferRecord::Kind::upload;
        std::optional<TransferOrigin> origin; ///< none when the stored job cannot be read
        std::string error;
        std::optional<APIError> apiError;
    };

    /// It had become meaningless and is gone.
    struct Dropped {
        std::string id;
        std::optional<TransferOrigin> origin;
        std::string reason;
    };

    std::variant<Uploaded, Downloaded, Failed, Dropped> value;

    /// The payload when the outcome is of that case, else nullptr.
    template <class C>
    [[nodiscard]] const C* as() const noexcept {
        return std::get_if<C>(&value);
    }
};

} // namespace Korvane
