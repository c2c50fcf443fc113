#pragma once

#include "KorvaneCore/account/AccountService.hpp"
#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/keychain/KeychainStore.hpp"
#include "KorvaneCore/platform/RunToEnd.hpp"

#include <boost/asio/io_context.hpp>

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace Korvane {

/// The core, as a command uses it: one thread, which runs while the command waits for something. When the
/// service takes this device's sign-in no longer, its tokens and its master key are forgotten and standard
/// error says how to sign in again; the index stays, for the same account's next sign-in.
class Client {
public:
    Client();

    /// At this service, where one is named: an http or https URL, which a sign-in makes the stored one.
    explicit Client(const std::optional<std::string>& service);

    /// With another configuration than the stored one, which stays as it is.
    explicit Client(KRConfiguration with);

    asio::io_context context;
    KRConfiguration configuration;
    std::shared_ptr<KeychainStore> keychain;
    std::shared_ptr<APIClient> api;
    AccountService account;

    /// Runs the coroutine to its end and gives its result, or throws what it throws.
    template <class T>
    T run(asio::awaitable<T> coroutine) {
        return runToEnd(context, std::move(coroutine));
    }

    /// Takes up the stored sign-in. Throws APIError (NotSignedIn).
    void requireSession();

    /// Why the service takes the sign-in no longer, once it does not.
    [[nodiscard]] const std::optional<APIError>& signInEnd() const noexcept { return signInEnd_; }

private:
    Client(KRConfiguration with, std::optional<std::string> service);

    void endSignIn(const APIError& error);
    asio::awaitable<void> forgetKeys();

    std::optional<APIError> signInEnd_;
};

} // namespace Korvane
