#include "KorvaneCommand/Client.hpp"

#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCore/config/DeviceInfo.hpp"
#include "KorvaneCore/platform/Bundle.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/Spawn.hpp"

#include <cstdio>

namespace Korvane {

namespace {

KRConfiguration configurationAt(const std::optional<std::string>& service) {
    auto configuration = KRConfiguration::fromBundle(Bundle::main());
    if (const auto url = KRConfiguration::parseBaseURL(service.value_or("")))
        configuration.apiBaseURL = configuration.webBaseURL = *url;
    return configuration;
}

} // namespace

Client::Client() : Client(std::optional<std::string>()) {}

Client::Client(const std::optional<std::string>& service) : Client(configurationAt(service), service) {}

Client::Client(KRConfiguration with) : Client(std::move(with), std::nullopt) {}

Client::Client(KRConfiguration with, std::optional<std::string> service)
    : configuration(std::move(with)),
      keychain(systemKeychain(configuration)),
      api(std::make_shared<APIClient>(context.get_executor(), configuration, keychain)),
      account(api, keychain, DeviceInfo::currentDeviceName(), std::move(service)) {
    run(api->setAuthFailureHandler([this](const APIError& error) { endSignIn(error); }));
}

void Client::endSignIn(const APIError& error) {
    const auto session = account.session();
    if (!session || error.is<APIError::NotSignedIn>())
        return; // signing out, or signed out already
    std::fprintf(stderr, "korvane: this device is signed out; sign in again with: korvane sign-in %s\n",
                 printable(session->user.email).c_str());
    signInEnd_ = error;
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
