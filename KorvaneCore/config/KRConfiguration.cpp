#include "KorvaneCore/config/KRConfiguration.hpp"

#include "KorvaneCore/config/SharedDefaults.hpp"
#include "KorvaneCore/config/Text.hpp"
#include "KorvaneCore/platform/Bundle.hpp"

#include <boost/url/parse.hpp>

namespace Korvane {

namespace {

constexpr std::string_view developmentService = "http://127.0.0.1:8787";
constexpr std::string_view apiOverrideKey = "KRAPIBaseURLOverride";
constexpr std::string_view webOverrideKey = "KRWebBaseURLOverride";

/// A setting that the build left empty or unexpanded counts as absent.
std::optional<std::string_view> meaningful(std::string_view text) {
    const auto value = trimmed(text);
    if (value.empty() || value.find("$(") != std::string_view::npos)
        return std::nullopt;
    return value;
}

std::optional<KRConfiguration::URL> baseURL(const std::optional<std::string>& overriding,
                                            const std::optional<std::string>& built) {
    for (const auto* text : {&overriding, &built})
        if (*text)
            if (auto url = KRConfiguration::parseBaseURL(**text))
                return url;
    return std::nullopt;
}

std::optional<PropertyList> asPropertyList(const std::optional<std::string>& text) {
    if (!text)
        return std::nullopt;
    return PropertyList{*text};
}

void append(KRConfiguration::URL& url, std::initializer_list<std::string_view> components) {
    auto segments = url.segments();
    if (!segments.empty() && segments.back().empty())
        segments.pop_back(); // of a path that ends in "/"
    for (const auto component : components)
        segments.push_back(component);
}

std::optional<KRConfiguration::URL> link(KRConfiguration::URL url, std::string_view kind,
                                         std::string_view token, std::string_view fragment) {
    if (token.empty())
        return std::nullopt;
    append(url, {kind, token});
    url.set_fragment(fragment);
    return url;
}

} // namespace

KRConfiguration KRConfiguration::fromBundle(const Bundle& bundle) {
    KRConfiguration configuration;
    configuration.apiBaseURL =
        baseURL(apiOverride(), bundle.infoString("KRAPIBaseURL")).value_or(URL(developmentService));
    configuration.webBaseURL =
        baseURL(webOverride(), bundle.infoString("KRWebBaseURL")).value_or(configuration.apiBaseURL);
    if (const auto text = bundle.infoString("KRKeychainAccessGroup"))
        if (const auto group = meaningful(*text))
            configuration.keychainAccessGroup = std::string(*group);
    return configuration;
}

std::optional<std::string> KRConfiguration::apiOverride() {
    return SharedDefaults::store().string(apiOverrideKey);
}

std::optional<std::string> KRConfiguration::webOverride() {
    return SharedDefaults::store().string(webOverrideKey);
}

void KRConfiguration::setOverrides(const std::optional<std::string>& api,
                                   const std::optional<std::string>& web) {
    const auto store = SharedDefaults::store();
    store.set(asPropertyList(api), apiOverrideKey);
    store.set(asPropertyList(web), webOverrideKey);
}

std::optional<KRConfiguration::URL> KRConfiguration::parseBaseURL(std::string_view text) {
    auto value = meaningful(text);
    if (!value)
        return std::nullopt;
    if (value->ends_with('/'))
        value->remove_suffix(1);

    const auto parsed = boost::urls::parse_uri(*value);
    if (!parsed || parsed->host().empty())
        return std::nullopt;
    const auto scheme = asciiLowerCased(parsed->scheme());
    if (scheme != "http" && scheme != "https")
        return std::nullopt;
    return URL(*parsed);
}

std::optional<KRConfiguration::URL> KRConfiguration::webSocketURL() const {
    if (!apiBaseURL.has_authority())
        return std::nullopt;
    URL url = apiBaseURL;
    url.set_scheme(asciiLowerCased(url.scheme()) == "https" ? "wss" : "ws");
    append(url, {"v1", "sync"});
    return url;
}

std::optional<KRConfiguration::URL> KRConfiguration::shareURL(std::string_view token,
                                                              std::string_view fragment) const {
    return link(webBaseURL, "s", token, fragment);
}

std::optional<KRConfiguration::URL> KRConfiguration::dropURL(std::string_view token,
                                                             std::string_view fragment) const {
    return link(webBaseURL, "d", token, fragment);
}

} // namespace Korvane
