#include "KorvaneCore/platform/StandardOutput.hpp"

#include <unistd.h>

#include <cstdio>

namespace Korvane {

int exitStatus(const char* program, int status) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    std::fprintf(stderr, "%s: the answer could not be written to standard output\n", program);
    return 1;
}

bool isTerminal(std::FILE* stream) noexcept {
    return ::isatty(::fileno(stream)) == 1;
}

} // namespace Korvane
