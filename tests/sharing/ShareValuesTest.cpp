#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/sharing/ShareError.hpp"
#include "KorvaneCore/sharing/ShareExpiry.hpp"
#include "KorvaneCore/sharing/ShareLayout.hpp"
#include "KorvaneCore/sharing/ShareLink.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <functional>

namespace Korvane::Testing {
namespace {

using Kind = ShareError::Kind;

std::optional<Kind> refusal(const std::function<void()>& act) {
    try {
        act();
    } catch (const ShareError& error) {
        return error.kind();
    }
    return std::nullopt;
}

const std::string key(43, 'A');

TEST(ShareLinkTest, SaysWhereItLeadsAndWithWhatKey) {
    const auto link = ShareLink::parse(" https://example.org/web/s/t-1#" + key + "\n");
    EXPECT_EQ(link.token, "t-1");
    EXPECT_EQ(link.webBaseURL.buffer(), "https://example.org/web");
    EXPECT_EQ(link.key.bytes(), KRCrypto::SecretBytes(32));

    KRConfiguration configuration;
    configuration.apiBaseURL = KRConfiguration::parseBaseURL("https://api.example.org").value();
    configuration.webBaseURL = KRConfiguration::parseBaseURL("HTTPS://Example.ORG/web/").value();
    EXPECT_EQ(link.apiBaseURL(configuration), configuration.apiBaseURL);
    for (const auto* other : {"http://example.org/web", "https://example.org", "https://example.org.evil/web",
                              "https://example.org:444/web"}) {
        configuration.webBaseURL = KRConfiguration::parseBaseURL(other).value();
        EXPECT_EQ(link.apiBaseURL(configuration), std::nullopt) << other;
    }
}

TEST(ShareLinkTest, RefusesWhatIsNone) {
    for (const std::string text : {"", "s/t#k", "ftp://a.org/s/t#", "https://a.org/d/t#", "https://a.org/s/#",
                                   "https://a.org/t#", "https:///s/t#"})
        EXPECT_EQ(refusal([&] { static_cast<void>(ShareLink::parse(text + key)); }), Kind::notALink) << text;
    for (const auto* text : {"https://a.org/s/t", "https://a.org/s/t#"})
        EXPECT_EQ(refusal([&] { static_cast<void>(ShareLink::parse(text)); }), Kind::noKey) << text;
    EXPECT_THROW(static_cast<void>(ShareLink::parse("https://a.org/s/t#" + key.substr(1))),
                 KRCrypto::KRCryptoError);
}

TEST(ShareExpiryTest, ReadsSpansDaysAndTimes) {
    const ScopedEnvironment zone("TZ", "Africa/Cairo"); // where 2026-04-24 has no midnight
    const auto now = KRJSON::parseDate("2026-04-20T10:00:00.000Z").value();
    for (const auto& [text, expected] : std::initializer_list<std::pair<const char*, const char*>>{
             {"30m", "2026-04-20T10:30:00.000Z"},
             {"12h", "2026-04-20T22:00:00.000Z"},
             {"7d", "2026-04-27T10:00:00.000Z"},
             {"2w", "2026-05-04T10:00:00.000Z"},
             {"2026-04-20", "2026-04-20T22:00:00.000Z"},
             {"2026-04-23", "2026-04-23T22:00:00.000Z"},
             {"2026-04-24", "2026-04-24T21:00:00.000Z"},
             {"2026-04-21T00:00:00+02:00", "2026-04-20T22:00:00.000Z"}})
        EXPECT_EQ(KRJSON::formatDate(shareExpiry(text, now)), expected) << text;
    for (const auto* text : {"0d", "2026-04-19", "2026-04-20T09:59:59Z"})
        EXPECT_EQ(refusal([&] { static_cast<void>(shareExpiry(text, now)); }), Kind::pastExpiry) << text;
    for (const auto* text : {"", "d", "7", "-1d", "7 d", "999999999d", "1y", "2026-13-01", "tomorrow"})
        EXPECT_EQ(refusal([&] { static_cast<void>(shareExpiry(text, now)); }), Kind::badExpiry) << text;
}

TEST(ShareLayoutTest, HostileNamesStayInTheirFolder) {
    for (const std::string name :
         {"../x", "/etc/passwd", "..", ".", "", "a/../../b", "..\\x", "a\x01/b", " . "}) {
        const auto targets = shareLayout(std::vector<ShareNode>{{"root", {}, name, true},
                                                                {"1", "root", name, false},
                                                                {"2", "root", name, true},
                                                                {"3", "2", name, false}});
        ASSERT_EQ(targets.size(), 4U) << name;
        for (const auto& target : targets) {
            EXPECT_FALSE(target.path.is_absolute()) << target.path;
            const auto depth = std::distance(target.path.begin(), target.path.end());
            EXPECT_EQ(depth, target.node == 0 ? 1 : target.node == 3 ? 3 : 2) << target.path;
            for (const auto& part : target.path)
                EXPECT_TRUE(part != ".." && part != "." && !part.empty()) << target.path;
        }
        EXPECT_NE(targets[1].path, targets[2].path) << "equal names are numbered";
    }
}

TEST(ShareLayoutTest, RefusesWhatIsNoTree) {
    const ShareNode root{"r", {}, "root", true};
    const std::vector<std::vector<ShareNode>> broken{
        {},
        {root, {"s", {}, "another root", true}},
        {root, {"r", "r", "an identifier twice", false}},
        {root, {"", "r", "no identifier", false}},
        {root, {"a", "nowhere", "in the air", false}},
        {root, {"a", "b", "in a circle", true}, {"b", "a", "in a circle", true}},
        {{"r", {}, "a file", false}, {"a", "r", "in a file", false}},
        {{"r", "r", "its own parent", true}},
    };
    for (const auto& nodes : broken)
        EXPECT_EQ(refusal([&] { static_cast<void>(shareLayout(nodes)); }), Kind::altered)
            << (nodes.empty() ? "empty" : nodes.back().name);
}

} // namespace
} // namespace Korvane::Testing
