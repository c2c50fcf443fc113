#pragma once

#include "KorvaneCore/config/KRIdentifiers.hpp"

#include <boost/url/url.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace Korvane {

class Bundle;

/// Where the service is and which names this installation uses.
struct KRConfiguration {
    using URL = boost::urls::url;

    URL apiBaseURL;
    URL webBaseURL;
    std::optional<std::string> keychainAccessGroup;
    std::string appGroup = std::string(KRIdentifiers::appGroup);

    /// From the bundle's property list, overridden by the shared defaults. Throws what reading those throws.
    static KRConfiguration fromBundle(const Bundle& bundle);

    /// What is stored as override, valid or not. setOverrides stores a present value and removes an absent
    /// one; the next fromBundle follows it.
    static std::optional<std::string> apiOverride();
    static std::optional<std::string> webOverride();
    static void setOverrides(const std::optional<std::string>& api, const std::optional<std::string>& web);

    /// The base URL in `text`; none when it is blank, holds an unexpanded build variable, or is no http or
    /// https URL with a host. White space around it and one trailing "/" do not count.
    static std::optional<URL> parseBaseURL(std::string_view text);

    /// Of the sync socket: "v1/sync" under the API base, as wss or ws.
    [[nodiscard]] std::optional<URL> webSocketURL() const;

    /// Links for people: "s/<token>#<fragment>" and "d/<token>#<fragment>" under the web base. The fragment
    /// holds the key and is never sent to a server. None when the token is empty.
    [[nodiscard]] std::optional<URL> shareURL(std::string_view token, std::string_view fragment) const;
    [[nodiscard]] std::optional<URL> dropURL(std::string_view token, std::string_view fragment) const;

    friend bool operator==(const KRConfiguration&, const KRConfiguration&) = default;
};

} // namespace Korvane
