#include "KorvaneCommand/AccountCommands.hpp"
#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/IndexCommand.hpp"
#include "KorvaneCommand/PairCommands.hpp"
#include "KorvaneCommand/QueueCommand.hpp"
#include "KorvaneCommand/ServiceCommand.hpp"
#include "KorvaneCommand/ShareCommands.hpp"
#include "KorvaneCommand/StatusCommand.hpp"
#include "KorvaneCommand/SyncCommands.hpp"
#include "KorvaneCommand/TransferCommands.hpp"
#include "KorvaneCommand/WidgetsCommand.hpp"
#include "KorvaneCore/platform/StandardOutput.hpp"

#include <CLI/CLI.hpp>

#include <cstdio>

namespace {

using namespace Korvane;

int run(int argc, char** argv) {
    CLI::App app("Korvane: end-to-end-encrypted file storage.\nExit codes: 0 done, 1 failed, 2 wrong usage.",
                 "korvane");
    app.require_subcommand(1);
    int status = ExitCode::done;
    addAccountCommands(app, status);
    addPairCommands(app, status);
    addSyncCommands(app, status);
    addTransferCommands(app, status);
    addShareCommands(app, status);
    addStatusCommand(app, status);
    addQueueCommand(app, status);
    addActivityCommand(app, status);
    addIndexCommand(app, status);
    addWidgetsCommand(app, status);
    addServiceCommand(app, status);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ExitCode::done : ExitCode::usage;
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return exitStatus("korvane", run(argc, argv));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "korvane: %s\n", error.what());
        return ExitCode::failed;
    }
}
