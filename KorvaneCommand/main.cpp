#include "KorvaneCommand/Commands.hpp"
#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCore/platform/StandardOutput.hpp"

#include <cstdio>

namespace {

using namespace Korvane;

int run(int argc, char** argv) {
    CLI::App app;
    int status = ExitCode::done;
    addCommands(app, status);
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
