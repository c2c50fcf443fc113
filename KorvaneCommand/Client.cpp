#include "KorvaneCommand/Client.hpp"

#include "KorvaneCore/config/DeviceInfo.hpp"
#include "KorvaneCore/platform/Bundle.hpp"

namespace Korvane {

Client::Client() : Client(KRConfiguration::fromBundle(Bundle::main())) {}

Client::Client(KRConfiguration with)
    : configuration(std::move(with)),
      keychain(systemKeychain(configuration)),
      api(std::make_shared<APIClient>(context.get_executor(), configuration, keychain)),
      account(api, keychain, DeviceInfo::currentDeviceName()) {}

void Client::run(asio::awaitable<void> coroutine) {
    std::exception_ptr error;
    asio::co_spawn(context, std::move(coroutine),
                   [&](std::exception_ptr thrown) { error = std::move(thrown); });
    finish(error);
}

void Client::finish(const std::exception_ptr& error) {
    context.restart();
    context.run();
    if (error)
        std::rethrow_exception(error);
}

void Client::requireSession() {
    if (!run(account.restoreSession()))
        throw APIError(APIError::NotSignedIn{});
}

} // namespace Korvane
