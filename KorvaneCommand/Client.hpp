#pragma once

#include "KorvaneCore/account/AccountService.hpp"
#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/keychain/KeychainStore.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>

#include <memory>
#include <utility>

namespace Korvane {

/// The core, as a command uses it: one thread, which runs while the command waits for something.
class Client {
public:
    Client();

    asio::io_context context;
    KRConfiguration configuration;
    std::shared_ptr<KeychainStore> keychain;
    std::shared_ptr<APIClient> api;
    AccountService account;

    /// Runs the coroutine to its end and gives its result, or throws what it throws.
    template <class T>
    T run(asio::awaitable<T> coroutine) {
        auto result = asio::co_spawn(context, std::move(coroutine), asio::use_future);
        finish();
        return result.get();
    }

    /// Takes up the stored sign-in. Throws APIError (NotSignedIn).
    void requireSession();

private:
    void finish();
};

} // namespace Korvane
