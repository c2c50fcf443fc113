#include "KorvaneCore/config/KRConfiguration.hpp"

#include "KorvaneCore/platform/Bundle.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace Korvane {
namespace {

std::string parsed(std::string_view text) {
    const auto url = KRConfiguration::parseBaseURL(text);
    return url ? std::string(url->buffer()) : "none";
}

TEST(KRConfiguration, BaseURLsAreHTTPWithAHostOrNone) {
    const std::pair<const char*, const char*> cases[] = {
        {"https://api.example.org", "https://api.example.org"},
        {"https://api.example.org/", "https://api.example.org"},
        {"https://api.example.org/base//", "https://api.example.org/base/"},
        {" \n\thttp://[::1]:8787/ \n", "http://[::1]:8787"},
        {"HTTPS://API.example.org", "HTTPS://API.example.org"},
        {"", "none"},
        {" \n ", "none"},
        {"$(KR_API_BASE_URL)", "none"},
        {"https://$(HOST)/", "none"},
        {"ftp://example.org", "none"},
        {"file:///etc", "none"},
        {"https://", "none"},
        {"https:///path", "none"},
        {"https:example.org", "none"},
        {"example.org", "none"},
        {"//example.org", "none"},
        {"https://exa mple.org", "none"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(parsed(text), expected) << text;
}

Bundle bundle(const char* api, const char* web, const char* group) {
    PropertyList::Dictionary info;
    const auto add = [&](const char* key, const char* value) {
        if (value != nullptr)
            info.emplace(key, PropertyList{std::string(value)});
    };
    add("KRAPIBaseURL", api);
    add("KRWebBaseURL", web);
    add("KRKeychainAccessGroup", group);
    return Bundle(info);
}

TEST(KRConfiguration, OverridesComeBeforeTheBundleAndTheBundleBeforeTheDefaults) {
    const Testing::TemporaryContainer container;
    const auto built = bundle("https://api.example.org/", "https://example.org", " TEAM.app.korvane ");
    const auto check = [](const Bundle& source, const char* api, const char* web) {
        const auto configuration = KRConfiguration::fromBundle(source);
        EXPECT_EQ(configuration.apiBaseURL.buffer(), api);
        EXPECT_EQ(configuration.webBaseURL.buffer(), web);
        EXPECT_EQ(configuration.appGroup, "group.app.korvane");
    };
    check(bundle(nullptr, nullptr, nullptr), "http://127.0.0.1:8787", "http://127.0.0.1:8787");
    check(bundle("https://api.example.org", nullptr, nullptr), "https://api.example.org",
          "https://api.example.org");
    check(built, "https://api.example.org", "https://example.org");

    KRConfiguration::setOverrides("http://localhost:1/", std::nullopt);
    check(built, "http://localhost:1", "https://example.org");
    KRConfiguration::setOverrides("not a url", "http://localhost:2");
    check(built, "https://api.example.org", "http://localhost:2");
    EXPECT_EQ(KRConfiguration::apiOverride(), "not a url");
    KRConfiguration::setOverrides(std::nullopt, std::nullopt);
    EXPECT_EQ(KRConfiguration::webOverride(), std::nullopt);

    EXPECT_EQ(KRConfiguration::fromBundle(built).keychainAccessGroup, "TEAM.app.korvane");
    for (const auto* group : {"", " ", "$(TEAM).app.korvane"})
        EXPECT_EQ(KRConfiguration::fromBundle(bundle(nullptr, nullptr, group)).keychainAccessGroup,
                  std::nullopt);
}

TEST(KRConfiguration, DerivedURLsExtendTheirBases) {
    KRConfiguration configuration;
    const auto text = [](const std::optional<KRConfiguration::URL>& url) {
        return url ? std::string(url->buffer()) : "none";
    };
    EXPECT_EQ(text(configuration.webSocketURL()), "none");
    configuration.apiBaseURL = KRConfiguration::URL("http://127.0.0.1:8787");
    EXPECT_EQ(text(configuration.webSocketURL()), "ws://127.0.0.1:8787/v1/sync");
    configuration.apiBaseURL = KRConfiguration::URL("HTTPS://example.org/base");
    EXPECT_EQ(text(configuration.webSocketURL()), "wss://example.org/base/v1/sync");

    configuration.apiBaseURL = KRConfiguration::URL("https://example.org/base/");
    EXPECT_EQ(text(configuration.webSocketURL()), "wss://example.org/base/v1/sync");

    configuration.webBaseURL = KRConfiguration::URL("https://example.org");
    EXPECT_EQ(text(configuration.shareURL("tok/en", "key-_1")), "https://example.org/s/tok%2Fen#key-_1");
    EXPECT_EQ(text(configuration.dropURL("t", "k.l")), "https://example.org/d/t#k.l");
    EXPECT_EQ(text(configuration.shareURL("", "key")), "none");
}

} // namespace
} // namespace Korvane
