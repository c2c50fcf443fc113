#pragma once

#include "KorvaneCore/account/AccountService.hpp"
#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/keychain/KeychainStore.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>

#include <exception>
#include <memory>
#include <optional>
#include <utility>

namespace Korvane {

/// The core, as a command uses it: one thread, which runs while the command waits for something.
class Client {
public:
    Client();

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
        std::exception_ptr error;
        std::optional<T> result;
        asio::co_spawn(context, std::move(coroutine), [&](std::exception_ptr thrown, T value) {
            error = std::move(thrown);
            result = std::move(value);
        });
        finish(error);
        return std::move(*result);
    }

    void run(asio::awaitable<void> coroutine);

    /// Takes up the stored sign-in. Throws APIError (NotSignedIn).
    void requireSession();

private:
    void finish(const std::exception_ptr& error);
};

} // namespace Korvane
