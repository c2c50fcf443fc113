#include "KorvaneCore/platform/ComputerName.hpp"

#include <unistd.h>

#include <array>
#include <fstream>
#include <string_view>

namespace Korvane {

namespace {

/// The value of a line `NAME="value"` in the shell-like syntax of machine-info(5); quotes are optional.
std::string machineInfo(std::string_view name) {
    std::ifstream file("/etc/machine-info");
    for (std::string line; std::getline(file, line);) {
        std::string_view rest = line;
        if (!rest.starts_with(name) || !rest.substr(name.size()).starts_with('='))
            continue;
        rest.remove_prefix(name.size() + 1);
        if (rest.size() >= 2 && (rest.front() == '"' || rest.front() == '\'') && rest.back() == rest.front())
            rest = rest.substr(1, rest.size() - 2);
        return std::string(rest);
    }
    return {};
}

} // namespace

std::string computerName() {
    if (auto pretty = machineInfo("PRETTY_HOSTNAME"); pretty.find_first_not_of(" \t") != std::string::npos)
        return pretty;
    std::array<char, 256> buffer{};
    if (::gethostname(buffer.data(), buffer.size() - 1) != 0)
        return "localhost";
    const std::string_view name = buffer.data();
    const auto label = name.substr(0, name.find('.'));
    return label.empty() ? "localhost" : std::string(label);
}

} // namespace Korvane
