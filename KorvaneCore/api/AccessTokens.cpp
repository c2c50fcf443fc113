#include "KorvaneCore/api/AccessTokens.hpp"

#include "KorvaneCore/api/APICall.hpp"
#include "KorvaneCore/api/ErrorMapping.hpp"
#include "KorvaneCore/api/JWT.hpp"
#include "KorvaneCore/config/CrossProcessLock.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/Spawn.hpp"

#include <boost/asio/redirect_error.hpp>
#include <boost/system/system_error.hpp>

#include <utility>

namespace Korvane {

namespace {

using Key = KeychainStore::Key;

constexpr std::chrono::seconds lockTimeout{20};
constexpr double freshFor = 30; // seconds

asio::awaitable<CrossProcessLock> lockTokens(std::shared_ptr<Clock> clock) {
    return CrossProcessLock::acquire("token-refresh", lockTimeout, std::move(clock));
}

/// The refresh token first: should only one be stored, the pair can still be refreshed.
std::vector<KeychainStore::Item> items(const TokenPair& pair) {
    return {{Key::refreshToken, KRCrypto::SecretBytes::copyOf(pair.refreshToken.text())},
            {Key::accessToken, KRCrypto::SecretBytes::copyOf(pair.accessToken.text())}};
}

TokenPair decodePair(const HTTPResponse& answer) {
    try {
        auto pair = KRJSON::read<TokenPair>(KRCrypto::asText(answer.body));
        if (pair.accessToken.empty() || pair.refreshToken.empty())
            throw JSONError("an empty token").of("TokenPair");
        return pair;
    } catch (const JSONError& error) {
        throw APIError(APIError::Decoding{error.what()});
    }
}

} // namespace

struct AccessTokens::Refresh {
    explicit Refresh(const Strand& strand) : ended(strand, asio::steady_timer::time_point::max()) {}

    asio::steady_timer ended; ///< never expires; cancelled at the end to wake who waits
    bool done = false;
    TokenPair pair;
    std::exception_ptr error;
};

class AccessTokens::Turn {
public:
    explicit Turn(AccessTokens& tokens) : tokens_(tokens) {
        tokens_.turnEnd_ =
            std::make_shared<asio::steady_timer>(tokens_.strand_, asio::steady_timer::time_point::max());
    }

    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    ~Turn() { std::exchange(tokens_.turnEnd_, nullptr)->cancel(); }

private:
    AccessTokens& tokens_;
};

AccessTokens::AccessTokens(Strand strand, KRConfiguration::URL apiBaseURL,
                           std::shared_ptr<KeychainStore> keychain, std::shared_ptr<HTTPSession> session,
                           std::shared_ptr<Clock> clock)
    : strand_(std::move(strand)),
      apiBaseURL_(std::move(apiBaseURL)),
      keychain_(std::move(keychain)),
      session_(std::move(session)),
      clock_(std::move(clock)) {}

asio::awaitable<SecretText> AccessTokens::current() {
    return on<SecretText>(strand_, [self = shared_from_this()] { return self->currentHere(); });
}

asio::awaitable<SecretText> AccessTokens::insteadOf(SecretText refused) {
    return on<SecretText>(strand_, [self = shared_from_this(), refused = std::move(refused)] {
        return self->insteadOfHere(refused);
    });
}

asio::awaitable<void> AccessTokens::set(TokenPair pair) {
    return on<void>(strand_,
                    [self = shared_from_this(), pair = std::move(pair)] { return self->setHere(pair); });
}

asio::awaitable<void> AccessTokens::clear() {
    return on<void>(strand_, [self = shared_from_this()] { return self->clearHere(); });
}

asio::awaitable<bool> AccessTokens::exist() {
    return on<bool>(strand_, [self = shared_from_this()] { return self->existHere(); });
}

asio::awaitable<void> AccessTokens::setFailureHandler(FailureHandler handler) {
    return on<void>(strand_, [self = shared_from_this(), handler = std::move(handler)] {
        return self->setFailureHandlerHere(handler);
    });
}

asio::awaitable<void> AccessTokens::report(APIError error) {
    return on<void>(
        strand_, [self = shared_from_this(), error = std::move(error)] { return self->reportHere(error); });
}

asio::awaitable<void> AccessTokens::setFailureHandlerHere(FailureHandler handler) {
    failureHandler_ = std::move(handler);
    co_return;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): a coroutine's own
asio::awaitable<void> AccessTokens::reportHere(APIError error) {
    notify(error);
    co_return;
}

asio::awaitable<SecretText> AccessTokens::currentHere() {
    if (!cachedTokens_) {
        const auto signIn = signIn_;
        auto pair = co_await stored();
        if (!cachedTokens_ && signIn == signIn_) // another caller may have been faster
            cachedTokens_ = std::move(pair);
        if (!cachedTokens_)
            throw APIError(APIError::NotSignedIn{});
    }
    if (!isStale(cachedTokens_->accessToken))
        co_return cachedTokens_->accessToken;
    const auto pair = co_await refresh();
    co_return pair.accessToken;
}

asio::awaitable<SecretText> AccessTokens::insteadOfHere(SecretText refused) {
    if (cachedTokens_ && cachedTokens_->accessToken != refused && !isStale(cachedTokens_->accessToken))
        co_return cachedTokens_->accessToken;
    const auto pair = co_await refresh();
    co_return pair.accessToken;
}

asio::awaitable<void> AccessTokens::setHere(TokenPair pair) {
    const auto lock = co_await lockTokens(clock_);
    co_await untilTurn();
    const Turn turn(*this);
    co_await offload([keychain = keychain_, pair] { keychain->write(items(pair)); });
    endSignIn();
    cachedTokens_ = std::move(pair);
}

asio::awaitable<void> AccessTokens::clearHere() {
    const auto lock = co_await lockTokens(clock_);
    co_await untilTurn();
    const Turn turn(*this);
    endSignIn();
    co_await offload([keychain = keychain_] { keychain->remove({Key::accessToken, Key::refreshToken}); });
}

asio::awaitable<void> AccessTokens::untilTurn() {
    while (const auto end = turnEnd_) {
        boost::system::error_code woken;
        co_await end->async_wait(asio::redirect_error(asio::use_awaitable, woken));
    }
}

/// What runs for it goes on, without effect.
void AccessTokens::endSignIn() {
    ++signIn_;
    refreshTask_.reset();
    unsavedOver_.reset();
    cachedTokens_.reset();
}

/// Throws when the pair was set or cleared since.
void AccessTokens::requireStill(std::uint64_t signIn) const {
    if (signIn != signIn_)
        throw APIError(APIError::NotSignedIn{});
}

asio::awaitable<bool> AccessTokens::existHere() {
    if (cachedTokens_)
        co_return true;
    const auto pair = co_await stored();
    co_return pair.has_value();
}

asio::awaitable<TokenPair> AccessTokens::refresh() {
    if (!refreshTask_) {
        refreshTask_ = std::make_shared<Refresh>(strand_);
        spawn(strand_, "api", run(refreshTask_));
    }
    const auto task = refreshTask_;
    while (!task->done) {
        boost::system::error_code woken;
        co_await task->ended.async_wait(asio::redirect_error(asio::use_awaitable, woken));
        const auto state = co_await asio::this_coro::cancellation_state;
        if (state.cancelled() != asio::cancellation_type::none)
            throw boost::system::system_error(asio::error::operation_aborted);
    }
    if (task->error)
        std::rethrow_exception(task->error);
    co_return task->pair;
}

asio::awaitable<void> AccessTokens::run(std::shared_ptr<Refresh> refresh) {
    const auto self = shared_from_this(); // whoever waits may be gone before the end
    const auto signIn = signIn_;
    try {
        refresh->pair = co_await renew();
    } catch (const APIError& error) {
        refresh->error = std::current_exception();
        if (signIn == signIn_) // else it is about a sign-in that has ended
            notify(error);
    } catch (...) {
        refresh->error = std::current_exception();
    }
    if (refreshTask_ == refresh)
        refreshTask_.reset();
    refresh->done = true;
    refresh->ended.cancel();
}

asio::awaitable<TokenPair> AccessTokens::renew() {
    const auto lock = co_await lockTokens(clock_);
    const auto signIn = signIn_;
    auto pair = co_await stored();
    requireStill(signIn);
    if (!pair)
        throw APIError(APIError::NotSignedIn{});
    if (cachedTokens_ && unsavedOver_ == pair->accessToken) {
        co_await keep(*cachedTokens_, *pair, signIn);
        pair = cachedTokens_;
    }
    const bool replaced = !cachedTokens_ || pair->accessToken != cachedTokens_->accessToken;
    if (replaced && !isStale(pair->accessToken)) {
        cachedTokens_ = pair;
        co_return *std::move(pair);
    }
    auto fresh = co_await askServer(*pair, signIn);
    co_return fresh;
}

/// What the server gives for the stored pair; it is cached and stored before this returns.
asio::awaitable<TokenPair> AccessTokens::askServer(TokenPair stored, std::uint64_t signIn) {
    const APICall call{.method = "POST",
                       .path = "/auth/refresh",
                       .body = APICall::json(RefreshRequest{stored.refreshToken})};
    auto request = call.request(apiBaseURL_, std::nullopt);
    request.freshConnection = true; // the server takes the token once: a second request would end the sign-in
    HTTPResponse answer;
    const KRCrypto::WipedAtEnd wiped(answer.body);
    try {
        answer = co_await session_->send(std::move(request));
    } catch (const HTTPError& error) {
        throw ErrorMapping::sessionError(error, "TokenPair");
    }
    if (answer.status >= 200 && answer.status <= 299) {
        auto pair = decodePair(answer);
        co_await keep(pair, std::move(stored), signIn);
        co_return pair;
    }
    const auto info = ErrorMapping::errorInfo(answer);
    if (answer.status != 401 && !info.error.is<APIError::DeviceRevoked>())
        throw info.error;
    // Perhaps another process refreshed meanwhile, without the lock: then the old token had to be refused.
    auto other = co_await this->stored();
    requireStill(signIn);
    if (!other || other->accessToken == stored.accessToken)
        throw APIError(APIError::DeviceRevoked{});
    cachedTokens_ = other;
    co_return *std::move(other);
}

/// Caches and stores a pair. It is good whether or not the keychain takes it, and the pair it replaces is
/// not: so a refusal is no failure of the refresh, and storing is tried again with the next one.
asio::awaitable<void> AccessTokens::keep(TokenPair pair, TokenPair replaced, std::uint64_t signIn) {
    co_await untilTurn();
    requireStill(signIn);
    const Turn turn(*this);
    cachedTokens_ = pair;
    unsavedOver_ = replaced.accessToken;
    try {
        co_await offload([keychain = keychain_, pair] { keychain->write(items(pair)); });
        unsavedOver_.reset();
    } catch (const KeychainError& error) {
        Log::error("keychain", std::string("new tokens were not stored: ") + error.what());
    }
}

asio::awaitable<std::optional<TokenPair>> AccessTokens::stored() {
    co_await untilTurn(); // not a pair that is just being removed
    co_return co_await offload([keychain = keychain_]() -> std::optional<TokenPair> {
        const auto access = keychain->read(Key::accessToken);
        const auto refresh = keychain->read(Key::refreshToken);
        if (!access || !refresh)
            return std::nullopt;
        return TokenPair{access->text(), refresh->text()};
    });
}

void AccessTokens::notify(const APIError& error) const {
    if (!failureHandler_ || (!error.isAuthFatal() && !error.is<APIError::Unauthorized>()))
        return;
    try {
        failureHandler_(error);
    } catch (const std::exception& failure) {
        Log::error("api", failure.what());
    }
}

bool AccessTokens::isStale(const SecretText& accessToken) const {
    const auto expiry = JWT::expiry(accessToken.text());
    const std::chrono::duration<double> now = clock_->now().time_since_epoch();
    return expiry && *expiry - now.count() < freshFor;
}

} // namespace Korvane
