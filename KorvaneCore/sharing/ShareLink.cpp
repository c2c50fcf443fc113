#include "KorvaneCore/sharing/ShareLink.hpp"

#include "KorvaneCore/config/Text.hpp"
#include "KorvaneCore/sharing/ShareError.hpp"

#include <boost/url/parse.hpp>

namespace Korvane {

namespace {

using Kind = ShareError::Kind;

/// Spelt in one way, so that equal bases are equal texts.
std::string spelling(KRConfiguration::URL url) {
    url.normalize();
    std::string text(url.buffer());
    while (text.ends_with('/'))
        text.pop_back();
    return text;
}

} // namespace

ShareLink ShareLink::parse(std::string_view text) {
    const auto parsed = boost::urls::parse_uri(trimmed(text));
    if (!parsed)
        throw ShareError(Kind::notALink);
    KRConfiguration::URL base(*parsed);
    auto segments = base.segments();
    if (segments.size() < 2 || *std::prev(segments.end(), 2) != "s" || (*std::prev(segments.end())).empty())
        throw ShareError(Kind::notALink);
    const std::string token = *std::prev(segments.end());
    segments.pop_back();
    segments.pop_back();
    if (!parsed->has_fragment() || parsed->encoded_fragment().empty())
        throw ShareError(Kind::noKey);
    auto key = KRCrypto::LinkKey::fromFragment(std::string_view(parsed->encoded_fragment()));
    base.remove_fragment();
    base.remove_query();
    const auto web = KRConfiguration::parseBaseURL(std::string_view(base.buffer()));
    if (!web)
        throw ShareError(Kind::notALink);
    return {*web, token, std::move(key)};
}

std::optional<KRConfiguration::URL> ShareLink::apiBaseURL(const KRConfiguration& configuration) const {
    if (spelling(webBaseURL) != spelling(configuration.webBaseURL))
        return std::nullopt;
    return configuration.apiBaseURL;
}

} // namespace Korvane
