#include "KorvaneCore/background/SessionFiles.hpp"
#include "KorvaneCore/config/CrossProcessLock.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/http/CurlSession.hpp"
#include "KorvaneCore/platform/LocalSocket.hpp"
#include "KorvaneCore/platform/Process.hpp"
#include "KorvaneCore/platform/RunToEnd.hpp"
#include "KorvaneTransfers/TransferHelper.hpp"

#include <CLI/CLI.hpp>
#include <boost/asio/io_context.hpp>

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

using namespace Korvane;

constexpr std::chrono::seconds lockTimeout{5}; // for an earlier helper that is just ending
constexpr int usageError = 2;
constexpr std::chrono::hours leftoverAge{7 * 24};
constexpr std::chrono::hours longestTransfer{7 * 24};

/// The right to be the session's helper, for as long as the process lives.
CrossProcessLock lockSession(const std::string& identifier) {
    asio::io_context context;
    return runToEnd(context, CrossProcessLock::acquire(SessionFiles::helperLock(identifier), lockTimeout));
}

int serve(const TransferHelper::Settings& settings, bool foreground) {
    const auto lock = lockSession(settings.identifier);
    if (!lock.isHeld()) {
        std::fprintf(stderr, "korvane-transfers: another helper has the session \"%s\".\n",
                     settings.identifier.c_str());
        return 1;
    }
    SharedContainer::purgeCipherStaging(leftoverAge);
    auto listening = LocalSocket::listen(SessionFiles::socket(settings.identifier));
    if (!foreground)
        Process::detach(); // whoever waits for this process can connect from now on
    Process::surviveFailedWrites();
    CurlSession::Options options;
    options.total = longestTransfer;
    TransferHelper(settings, std::move(listening), std::make_shared<CurlSession>(options)).run();
    return 0;
}

int run(int argc, char** argv) {
    CLI::App app("Carries the transfers of one background session, also while the program that ordered them "
                 "is stopped or gone. Started by that program when needed; ends when idle.\n"
                 "Exit codes: 0 listening, or done with --foreground; 1 failed; 2 called wrongly.",
                 "korvane-transfers");
    TransferHelper::Settings settings;
    std::filesystem::path container;
    bool foreground = false;
    int idle = static_cast<int>(settings.idle.count());
    app.add_option("--identifier", settings.identifier, "The session's identifier")->required();
    app.add_option("--container", container, "The shared container; this user's by default");
    app.add_option("--idle", idle, "Seconds without a client and without work before it ends")
        ->check(CLI::Range(1, 86'400))
        ->capture_default_str();
    app.add_flag("--foreground", foreground, "Stay in this process, and log to its standard error");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : usageError;
    }
    settings.idle = std::chrono::seconds(idle);
    if (!container.empty())
        SharedContainer::setOverrideURL(std::filesystem::absolute(container));
    return serve(settings, foreground);
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "korvane-transfers: %s\n", error.what());
        return 1;
    }
}
