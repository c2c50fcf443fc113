#pragma once

#include "KorvaneCore/api/APIError.hpp"
#include "KorvaneCore/api/records/TokenPair.hpp"
#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/http/HTTPSession.hpp"
#include "KorvaneCore/keychain/KeychainStore.hpp"
#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Strand.hpp"

#include <boost/asio/steady_timer.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace Korvane {

/// The access token of this process, kept fresh: at most one refresh runs in this process and, under the lock
/// "token-refresh", across processes. A refresh goes on when its callers are cancelled, since the server may
/// have replaced the token already; the stored pair changes under the lock only. A pair that was set or
/// cleared stays so: what a refresh brings that began before is dropped, and its callers are not signed in.
/// State lives on one strand; callable from any thread. Errors: APIError, KeychainError.
class AccessTokens : public std::enable_shared_from_this<AccessTokens> {
public:
    using FailureHandler = std::function<void(const APIError&)>;

    AccessTokens(Strand strand, KRConfiguration::URL apiBaseURL, std::shared_ptr<KeychainStore> keychain,
                 std::shared_ptr<HTTPSession> session, std::shared_ptr<Clock> clock);

    /// A token good for 30 s more, as far as it can be read; refreshed first where it is not.
    asio::awaitable<SecretText> current();

    /// A token other than the one a server refused.
    asio::awaitable<SecretText> insteadOf(SecretText refused);

    asio::awaitable<void> set(TokenPair pair);
    asio::awaitable<void> clear();
    asio::awaitable<bool> exist();

    /// Called on the strand, once for each failure, with an error after which the sign-in is no longer
    /// usable.
    asio::awaitable<void> setFailureHandler(FailureHandler handler);

    /// Tells the handler when the error is of that kind.
    asio::awaitable<void> report(APIError error);

private:
    /// One run, shared by all who wait for it.
    struct Refresh;

    /// The right to write the keychain, one at a time in this process. The lock between processes is not
    /// waited for for ever, so it alone would let an older pair be written over a newer one.
    class Turn;

    // All of these run on the strand.
    asio::awaitable<SecretText> currentHere();
    asio::awaitable<SecretText> insteadOfHere(SecretText refused);
    asio::awaitable<void> setHere(TokenPair pair);
    asio::awaitable<void> clearHere();
    asio::awaitable<bool> existHere();
    asio::awaitable<void> setFailureHandlerHere(FailureHandler handler);
    asio::awaitable<void> reportHere(APIError error);
    asio::awaitable<TokenPair> refresh();
    asio::awaitable<void> run(std::shared_ptr<Refresh> refresh);
    asio::awaitable<TokenPair> renew();
    asio::awaitable<TokenPair> askServer(TokenPair stored, std::uint64_t signIn);
    asio::awaitable<void> keep(TokenPair pair, TokenPair replaced, std::uint64_t signIn);
    asio::awaitable<void> untilTurn();
    void endSignIn();
    void requireStill(std::uint64_t signIn) const;
    asio::awaitable<std::optional<TokenPair>> stored();
    void notify(const APIError& error) const;
    [[nodiscard]] bool isStale(const SecretText& accessToken) const;

    const Strand strand_;
    const KRConfiguration::URL apiBaseURL_;
    const std::shared_ptr<KeychainStore> keychain_;
    const std::shared_ptr<HTTPSession> session_;
    const std::shared_ptr<Clock> clock_;

    std::optional<TokenPair> cachedTokens_;
    std::uint64_t signIn_ = 0; ///< counts what was set and cleared
    std::shared_ptr<Refresh> refreshTask_;
    std::shared_ptr<asio::steady_timer> turnEnd_; ///< while somebody has the turn; cancelled at its end
    FailureHandler failureHandler_;
    /// The stored access token that the cached pair should have replaced, had the keychain worked.
    std::optional<SecretText> unsavedOver_;
};

} // namespace Korvane
