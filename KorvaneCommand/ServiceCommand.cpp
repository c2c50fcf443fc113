#include "KorvaneCommand/ServiceCommand.hpp"

#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/ServiceManager.hpp"
#include "KorvaneCore/platform/UserFolders.hpp"
#include "KorvaneService/Service.hpp"

#include <boost/asio/signal_set.hpp>
#include <boost/describe/class.hpp>

#include <csignal>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace Korvane {

namespace {

using Mode = SignUpAvailability::Mode;

struct ServiceRequest {
    ServiceSettings settings;
    std::int64_t quotaGiB = 100;
    std::int64_t tokenLifetime = 900;
    bool json = false;
};

struct Listening {
    std::string url;
    std::string data;
};
BOOST_DESCRIBE_STRUCT(Listening, (), (url, data))

std::filesystem::path dataFolder(const ServiceRequest& request) {
    if (!request.settings.folder.empty())
        return std::filesystem::absolute(request.settings.folder);
    if (const auto folder = UserFolders::groupContainer("korvane-service"))
        return *folder;
    throw std::runtime_error("there is no home folder to keep the data in; name one with --data");
}

int serve(const ServiceRequest& request) {
    auto settings = request.settings;
    settings.folder = dataFolder(request);
    settings.quotaBytes = request.quotaGiB << 30;
    settings.accessTokenLifetime = std::chrono::seconds(request.tokenLifetime);

    // Before the service's threads, so that none of them takes the signal's default.
    asio::io_context waiting;
    asio::signal_set signals(waiting, SIGINT, SIGTERM);
    signals.async_wait([](const boost::system::error_code&, int) {});
    const Service service(settings);
    const Listening listening{service.baseURL(), settings.folder.string()};
    if (request.json)
        std::puts(KRJSON::write(listening).c_str());
    else
        std::printf("Listening on %s, data in %s. Ctrl-C stops it.\n", listening.url.c_str(),
                    listening.data.c_str());
    std::fflush(stdout);
    ServiceManager::ready("Listening on " + listening.url);
    waiting.run();
    ServiceManager::stopping();
    return ExitCode::done;
}

} // namespace

void addServiceCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("service", "Run a storage service");
    command->footer("The service listens on 127.0.0.1 until it is interrupted.");
    const auto request = std::make_shared<ServiceRequest>();
    auto& settings = request->settings;
    command->add_option("--port", settings.port, "Port on 127.0.0.1; 0 for any free one")
        ->capture_default_str();
    command
        ->add_option("--data", settings.folder,
                     "Folder for its data (default: korvane-service in your data folder)")
        ->type_name("DIR");
    command->add_option("--quota", request->quotaGiB, "Room of a new account in GiB")
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{1} << 20))
        ->capture_default_str();
    command->add_option("--token-lifetime", request->tokenLifetime, "Seconds an access token is valid")
        ->check(CLI::Range(std::int64_t{1}, std::int64_t{86400}))
        ->capture_default_str();
    auto* invite =
        command->add_option("--invite-code", settings.inviteCode, "Let only those sign up who have this code")
            ->type_name("CODE");
    command->add_flag("--json", request->json, "Print one line of JSON once it listens");
    command->callback([request, invite, &status] {
        if (invite->count() > 0)
            request->settings.signupMode = Mode::invite;
        status = serve(*request);
    });
}

} // namespace Korvane
