// A process of its own with a client: ClientPeer URL KEYCHAIN. Says "ready", waits for its input to end,
// makes two calls at once and says how each went, and whether its sign-in was lost.
#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/keychain/FileKeychain.hpp"
#include "KorvaneCore/platform/Spawn.hpp"

#include <boost/asio/io_context.hpp>

#include <iostream>

using namespace Korvane;

namespace {

asio::awaitable<void> callOnce(APIClient& client) {
    std::string outcome;
    try {
        outcome = "signed in as " + (co_await client.me()).user.id;
    } catch (const std::exception& error) {
        outcome = error.what();
    }
    std::cout << outcome << '\n' << std::flush;
}

} // namespace

int main(int, char** argv) {
    std::cout << "ready\n" << std::flush;
    for (std::string line; std::getline(std::cin, line);) {
    }
    asio::io_context context;
    KRConfiguration configuration;
    configuration.apiBaseURL = *KRConfiguration::parseBaseURL(argv[1]);
    APIClient client(context.get_executor(), configuration, std::make_shared<FileKeychain>(argv[2]));
    spawn(context.get_executor(), "test", client.setAuthFailureHandler([](const APIError& error) {
        std::cout << "lost: " << error.what() << '\n' << std::flush;
    }));
    for (int i = 0; i < 2; ++i)
        spawn(context.get_executor(), "test", callOnce(client));
    context.run();
    return 0;
}
