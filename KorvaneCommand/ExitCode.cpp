#include "KorvaneCommand/ExitCode.hpp"

#include "KorvaneCommand/UsageError.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/keychain/KeychainStore.hpp"

namespace Korvane::ExitCode {

int of(const std::exception& error) noexcept {
    if (dynamic_cast<const UsageError*>(&error) != nullptr)
        return usage;
    const auto* service = apiError(error);
    const bool isSignedOut = service != nullptr && service->isAuthFatal();
    return isSignedOut || dynamic_cast<const KeychainDamaged*>(&error) != nullptr ? signInNeeded : failed;
}

} // namespace Korvane::ExitCode
