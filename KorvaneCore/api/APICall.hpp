#pragma once

#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/http/HTTPSession.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Korvane {

/// The longest answers that are read, in bytes.
namespace AnswerLimit {
inline constexpr std::size_t record = 1 << 20;
inline constexpr std::size_t thumbnail = 8 << 20;
inline constexpr std::size_t list = 64 << 20; ///< pages, and the parts of an upload
} // namespace AnswerLimit

/// One call to the API, before a token is on it.
struct APICall {
    // The initialisers let designated ones leave members out.
    // NOLINTBEGIN(readability-redundant-member-init)
    std::string method{};
    std::string path{}; ///< begins with "/"; identifiers in it are segments
    std::vector<std::pair<std::string, std::string>> query{};
    std::optional<KRCrypto::SecretBytes> body{};
    std::vector<HTTPHeader> headers{};
    // NOLINTEND(readability-redundant-member-init)
    std::string contentType = "application/json"; ///< of the body
    std::string accept = "application/json";
    std::size_t maxAnswerSize = AnswerLimit::record;

    /// Send the access token, and renew it when the server wants another.
    bool authenticated = true;
    /// Fail with the whole APIErrorInfo instead of its APIError alone.
    bool returnsErrorInfo = false;
    /// The call carries a proof of who asks, so a 401 that is no token problem refuses that proof.
    bool credentialCheck = false;

    static KRCrypto::SecretBytes json(const auto& record) {
        auto text = KRJSON::write(record);
        const KRCrypto::WipedAtEnd wiped(text);
        return KRCrypto::SecretBytes::copyOf(text);
    }

    /// "/" and an identifier percent-encoded as one path segment. Throws APIError::BadRequest for one that
    /// would name another resource: an empty one, "." and "..".
    [[nodiscard]] static std::string segment(std::string_view identifier);

    /// The call's URL, "v1" under the base.
    [[nodiscard]] std::string url(const KRConfiguration::URL& base) const;

    /// The request to send, with the token when there is one. Borrows this call's body.
    [[nodiscard]] HTTPRequest request(const KRConfiguration::URL& base,
                                      std::optional<std::string_view> accessToken) const;
};

} // namespace Korvane
