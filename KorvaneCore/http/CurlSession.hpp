#pragma once

#include "KorvaneCore/http/HTTPSession.hpp"

#include <chrono>
#include <filesystem>
#include <memory>

namespace Korvane {

/// HTTP over libcurl: one thread of its own, connections kept and shared, HTTP/2 where an https server offers
/// it. No cookies, no cache, no redirects; certificates are verified; nothing but http and https.
class CurlSession final : public HTTPSession {
public:
    struct Options {
        std::chrono::seconds idle{60};    ///< how long nothing may move, the connection included
        std::chrono::seconds total{3600}; ///< how long one request may take
        /// The certificates to trust, a PEM file; empty for the system's.
        // NOLINTNEXTLINE(readability-redundant-member-init): lets designated initialisers leave it out
        std::filesystem::path trustedCertificates{};
    };

    CurlSession();
    explicit CurlSession(Options options);

    /// Ends what is still under way with HTTPError (connection). Not from one of its own completions.
    ~CurlSession() override;

    asio::awaitable<HTTPResponse> send(HTTPRequest request) override;

private:
    class Loop;
    std::shared_ptr<Loop> loop_;
};

} // namespace Korvane
