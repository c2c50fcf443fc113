#include "KorvaneCommand/Commands.hpp"

#include "KorvaneCommand/AccountCommands.hpp"
#include "KorvaneCommand/DoctorCommand.hpp"
#include "KorvaneCommand/IndexCommand.hpp"
#include "KorvaneCommand/PairCommands.hpp"
#include "KorvaneCommand/PinCommands.hpp"
#include "KorvaneCommand/QueueCommand.hpp"
#include "KorvaneCommand/ServiceCommand.hpp"
#include "KorvaneCommand/ShareCommands.hpp"
#include "KorvaneCommand/StatusCommand.hpp"
#include "KorvaneCommand/SyncCommands.hpp"
#include "KorvaneCommand/TransferCommands.hpp"
#include "KorvaneCommand/WidgetsCommand.hpp"
#include "KorvaneCommand/terminal/DocumentCommands.hpp"
#include "KorvaneCommand/terminal/HelpFormatter.hpp"

#include <memory>
#include <vector>

namespace Korvane {

namespace {

/// Commands that belong together in the help.
struct Group {
    const char* title;
    std::vector<void (*)(CLI::App&, int&)> commands;
};

} // namespace

void addCommands(CLI::App& app, int& status) {
    const std::vector<Group> groups = {
        {"Account", {addAccountCommands, addPairCommands}},
        {"Files", {addTransferCommands, addPinCommands, addShareCommands}},
        {"Synced folders", {addSyncCommands, addStatusCommand, addQueueCommand, addActivityCommand}},
        {"This computer",
         {addWidgetsCommand, addIndexCommand, addServiceCommand, addDoctorCommand, addDocumentCommands}},
    };
    app.name("korvane");
    app.description("End-to-end-encrypted file storage.");
    app.footer("Exit codes: 0 done, 1 failed or partly so, 2 called wrongly, 3 not signed in.");
    app.set_help_flag("-h,--help", "Print this help");
    app.set_version_flag("--version", "korvane " KORVANE_VERSION, "Print the version");
    app.formatter(std::make_shared<HelpFormatter>());
    app.require_subcommand(1);
    for (const auto& group : groups) {
        const auto before = app.get_subcommands({}).size();
        for (const auto add : group.commands)
            add(app, status);
        const auto added = app.get_subcommands([](CLI::App*) { return true; });
        for (auto index = before; index < added.size(); ++index)
            added[index]->group(group.title);
    }
}

} // namespace Korvane
