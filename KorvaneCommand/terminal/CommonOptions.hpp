#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <optional>
#include <string>

/// Options that several commands have, with the same words and the same checks.
namespace Korvane::CommonOptions {

/// `--json`
void addJSON(CLI::App& command, bool& json);

/// `--service URL`: an http or https one.
void addService(CLI::App& command, std::optional<std::string>& service, const std::string& about);

/// `option`: an open file descriptor to read `what` from.
CLI::Option* addDescriptor(CLI::App& command, std::optional<int>& descriptor, const std::string& option,
                           const std::string& what);

/// For Option::check: called wrongly when `read` throws, which says why.
[[nodiscard]] std::function<std::string(const std::string&)>
readable(std::function<void(const std::string&)> read);

} // namespace Korvane::CommonOptions
