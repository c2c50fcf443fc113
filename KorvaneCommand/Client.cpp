#include "KorvaneCommand/Client.hpp"

#include "KorvaneCore/config/DeviceInfo.hpp"
#include "KorvaneCore/platform/Bundle.hpp"

namespace Korvane {

Client::Client()
    : configuration(KRConfiguration::fromBundle(Bundle::main())),
      keychain(systemKeychain(configuration)),
      api(std::make_shared<APIClient>(context.get_executor(), configuration, keychain)),
      account(api, keychain, DeviceInfo::currentDeviceName()) {}

void Client::finish() {
    context.restart();
    context.run();
}

void Client::requireSession() {
    if (!run(account.restoreSession()))
        throw APIError(APIError::NotSignedIn{});
}

} // namespace Korvane
