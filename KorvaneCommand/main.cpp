#include "KorvaneCommand/Commands.hpp"
#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCommand/terminal/ParseFailure.hpp"
#include "KorvaneCore/platform/StandardOutput.hpp"

#include <csignal>
#include <cstdio>

namespace {

using namespace Korvane;

int run(int argc, char** argv) {
    CLI::App app;
    int status = ExitCode::done;
    addCommands(app, status);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        app.exit(help);
    } catch (const CLI::ParseError& error) {
        std::fputs(parseFailure(app, error).c_str(), stderr);
        return ExitCode::usage;
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGXFSZ, SIG_IGN); // then a write beyond the limit of file sizes fails like any other
    try {
        return exitStatus("korvane", run(argc, argv));
    } catch (const std::exception& error) {
        // A sentence may be the service's, and the terminal is not for it to steer.
        std::fprintf(stderr, "korvane: %s\n", printable(error.what()).c_str());
        return ExitCode::of(error);
    }
}
