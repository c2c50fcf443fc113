#include "KorvaneCommand/doctor/Checks.hpp"
#include "KorvaneCore/api/APICall.hpp"
#include "KorvaneCore/api/JWT.hpp"
#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/http/CurlSession.hpp"
#include "KorvaneCore/http/HTTPDate.hpp"
#include "KorvaneCore/http/HTTPError.hpp"
#include "KorvaneCore/keychain/KeychainStore.hpp"
#include "KorvaneCore/platform/Bundle.hpp"
#include "KorvaneCore/platform/RunToEnd.hpp"

#include <boost/asio/io_context.hpp>
#include <fmt/format.h>

#include <chrono>

namespace Korvane::Checks {

using enum FindingLevel;

namespace {

using Key = KeychainStore::Key;

constexpr std::chrono::seconds patience{10};
constexpr std::chrono::seconds tolerableSkew{60};
constexpr std::chrono::seconds harmfulSkew{300};
constexpr int ok200 = 200;
constexpr int unauthorized = 401;

/// Who asks: with a token the account's user, without one nobody, which the service refuses.
HTTPResponse ask(const KRConfiguration& configuration, std::optional<std::string_view> token) {
    asio::io_context context;
    CurlSession session({.idle = patience / 2, .total = patience});
    APICall call;
    call.method = "GET";
    call.path = "/auth/me";
    return runToEnd(context, session.send(call.request(configuration.apiBaseURL, token)));
}

bool isLoopback(const KRConfiguration::URL& url) {
    const auto host = url.host();
    return host == "localhost" || host.starts_with("127.") || host == "[::1]";
}

Finding address(const KRConfiguration& configuration) {
    const std::string url(configuration.apiBaseURL.buffer());
    if (configuration.apiBaseURL.scheme() == "https")
        return {"address", ok, url, ""};
    if (isLoopback(configuration.apiBaseURL))
        return {"address", ok, url + ", without TLS but on this computer", ""};
    return {"address", problem, url + " would send tokens over the network in the clear",
            "Sign in again with --service and an https URL."};
}

Finding refused(const HTTPError& error) {
    if (error.kind() == HTTPError::Kind::certificate)
        return {"service", problem, std::string("its certificate cannot be verified: ") + error.what(),
                "Check the address and the computer's clock; install ca-certificates."};
    return {"service", problem, std::string("it does not answer: ") + error.what(),
            "Check the network, and that the service runs (here: korvane service)."};
}

Finding reachability(const KRConfiguration& configuration, int status) {
    if (status != unauthorized)
        return {"service", problem, fmt::format("something answers there, with status {}", status),
                "Check the address; another program may have its port."};
    const bool isSecure = configuration.apiBaseURL.scheme() == "https";
    return {"service", ok, isSecure ? "it answers, and its certificate is verified" : "it answers", ""};
}

Finding clock(const HTTPResponse& answer) {
    const auto header = answer.header("Date");
    const auto time = header ? HTTPDate::read(std::string(*header)) : std::nullopt;
    if (!time)
        return {"clock", ok, "the service does not tell the time", ""};
    const auto skew = std::chrono::round<std::chrono::seconds>(std::chrono::system_clock::now() - *time);
    if (std::chrono::abs(skew) <= tolerableSkew)
        return {"clock", ok, "agrees with the service's", ""};
    const auto text = fmt::format("{} s {} the service's", std::chrono::abs(skew).count(),
                                  skew.count() > 0 ? "ahead of" : "behind");
    return {"clock", std::chrono::abs(skew) > harmfulSkew ? problem : warning, text,
            "Set this computer's clock, such as with: timedatectl set-ntp true"};
}

bool isCurrent(std::string_view token) {
    const auto expiry = JWT::expiry(token);
    const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
    return expiry && *expiry > now.count();
}

Finding signIn(const KRConfiguration& configuration, bool isReachable) {
    const auto keychain = systemKeychain(configuration);
    const auto access = keychain->read(Key::accessToken);
    const bool hasTokens = access && keychain->read(Key::refreshToken);
    const bool hasKey = keychain->read(Key::masterKey).has_value();
    if (!hasTokens && !hasKey)
        return {"sign-in", warning, "nobody is signed in", "Run: korvane sign-in EMAIL"};
    if (!hasTokens || !hasKey)
        return {"sign-in", problem, "only a part of a sign-in is stored", "Run: korvane sign-in EMAIL"};
    if (!isReachable)
        return {"sign-in", ok, "stored; the service was not asked", ""};
    if (!isCurrent(access->text()))
        return {"sign-in", ok, "stored; renewed when it is next used", ""};
    const auto answer = ask(configuration, access->text());
    if (answer.status == ok200)
        return {"sign-in", ok, "the service accepts it", ""};
    return {"sign-in", problem, fmt::format("the service refuses it, with status {}", answer.status),
            "Run: korvane sign-in EMAIL"};
}

Finding signInOrFailure(const KRConfiguration& configuration, bool isReachable) {
    try {
        return signIn(configuration, isReachable);
    } catch (const KeychainError&) {
        return {"sign-in", problem, "the keychain cannot be read", "See keychain."};
    } catch (const HTTPError& error) {
        return refused(error);
    }
}

} // namespace

Findings service() {
    const auto configuration = KRConfiguration::fromBundle(Bundle::main());
    Findings found{address(configuration)};
    bool isReachable = false;
    // What would travel in the clear is not sent.
    if (found.front().level != problem) {
        try {
            const auto answer = ask(configuration, std::nullopt);
            found.push_back(reachability(configuration, answer.status));
            isReachable = found.back().level == ok;
            if (isReachable)
                found.push_back(clock(answer));
        } catch (const HTTPError& error) {
            found.push_back(refused(error));
        }
    }
    found.push_back(signInOrFailure(configuration, isReachable));
    return found;
}

} // namespace Korvane::Checks
