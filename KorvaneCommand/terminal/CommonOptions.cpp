#include "KorvaneCommand/terminal/CommonOptions.hpp"

#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/platform/SecretInput.hpp"

#include <exception>
#include <utility>

namespace Korvane::CommonOptions {

void addJSON(CLI::App& command, bool& json) {
    command.add_flag("--json", json, "Print one line of JSON");
}

void addService(CLI::App& command, std::optional<std::string>& service, const std::string& about) {
    command.add_option("--service", service, about)->type_name("URL")->check([](const std::string& text) {
        return KRConfiguration::parseBaseURL(text) ? "" : "\"" + text + "\" is no http or https URL";
    });
}

CLI::Option* addDescriptor(CLI::App& command, std::optional<int>& descriptor, const std::string& option,
                           const std::string& what) {
    return command.add_option(option, descriptor, "Read the " + what + " from this file descriptor")
        ->check([](const std::string& text) {
            int number = -1;
            const bool isOpen = CLI::detail::lexical_cast(text, number) && SecretInput::canRead(number);
            return isOpen ? "" : "\"" + text + "\" is no file descriptor that is open to read from";
        });
}

std::function<std::string(const std::string&)> readable(std::function<void(const std::string&)> read) {
    return [read = std::move(read)](const std::string& text) -> std::string {
        try {
            read(text);
            return "";
        } catch (const std::exception& error) {
            return error.what();
        }
    };
}

} // namespace Korvane::CommonOptions
