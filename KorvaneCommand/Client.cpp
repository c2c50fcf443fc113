#include "KorvaneCommand/Client.hpp"

#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCore/config/DeviceInfo.hpp"
#include "KorvaneCore/platform/Bundle.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/Spawn.hpp"

#include <cstdio>

namespace Korvane {

Client::Client() : Client(KRConfiguration::fromBundle(Bundle::main())) {}

Client::Client(KRConfiguration with)
    : configuration(std::move(with)),
      keychain(systemKeychain(configuration)),
      api(std::make_shared<APIClient>(context.get_executor(), configuration, keychain)),
      account(api, keychain, DeviceInfo::currentDeviceName()) {
    run(api->setAuthFailureHandler([this](const APIError& error) { endSignIn(error); }));
}

void Client::endSignIn(const APIError& error) {
    const auto session = account.session();
    if (!session || error.is<APIError::NotSignedIn>())
        return; // signing out, or signed out already
    std::fprintf(stderr, "korvane: this device is signed out; sign in again with: korvane sign-in %s\n",
                 printable(session->user.email).c_str());
    spawn(context.get_executor(), "account", forgetKeys());
}

asio::awaitable<void> Client::forgetKeys() {
    co_await api->clearTokens();
    co_await offload([this] { keychain->remove({KeychainStore::Key::masterKey}); });
}

void Client::requireSession() {
    if (!run(account.restoreSession()))
        throw APIError(APIError::NotSignedIn{});
}

} // namespace Korvane
