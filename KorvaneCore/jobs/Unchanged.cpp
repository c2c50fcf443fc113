#include "KorvaneCore/jobs/Unchanged.hpp"

#include "KRCrypto/KRCryptoError.hpp"

namespace Korvane {

void requireUnchanged(const std::filesystem::path& file, const LocalStat& stat) {
    if (localStat(file) != stat)
        throw KRCrypto::KRCryptoError(KRCrypto::KRCryptoError::FileChangedDuringRead{});
}

} // namespace Korvane
