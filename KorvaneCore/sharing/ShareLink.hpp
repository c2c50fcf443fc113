#pragma once

#include "KRCrypto/LinkKey.hpp"
#include "KorvaneCore/config/KRConfiguration.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace Korvane {

/// What a link to a share says: "<web base>/s/<token>#<key>".
struct ShareLink {
    KRConfiguration::URL webBaseURL;
    std::string token; ///< all of it that the service is told
    KRCrypto::LinkKey key;

    /// Throws ShareError (notALink, noKey), and KRCryptoError (InvalidFragment) for a key that is none.
    [[nodiscard]] static ShareLink parse(std::string_view text);

    /// The API behind the link: the configured one when the link lies under the configured web base. None for
    /// a link of another service, which says nothing about where its API is.
    [[nodiscard]] std::optional<KRConfiguration::URL> apiBaseURL(const KRConfiguration& configuration) const;
};

} // namespace Korvane
