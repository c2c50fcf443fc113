#pragma once

#include "tests/support/ChildProcess.hpp"

namespace Korvane::Testing {

/// Runs `korvane` with a password on its standard input; what it says on standard error is part of its
/// output.
inline ProgramResult withPassword(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(),
                     {"/bin/sh", "-c", R"(printf 'pass word\n' | exec "$0" "$@" --password-fd 0 2>&1)",
                      builtProgram("korvane").string()});
    ChildProcess process(arguments);
    auto output = process.readAll();
    return {process.wait(), std::move(output)};
}

} // namespace Korvane::Testing
