#include "KorvaneCore/platform/Log.hpp"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace Korvane::Log {

namespace {

spdlog::level::level_enum lowestLevel() {
    const char* name = std::getenv("KORVANE_LOG");
    const std::string_view wanted = name == nullptr ? "warning" : name;
    const auto level = spdlog::level::from_str(std::string(wanted));
    // An unknown name reads as "off", which only its own name may mean.
    return level == spdlog::level::off && wanted != "off" ? spdlog::level::warn : level;
}

void write(spdlog::level::level_enum level, std::string_view category, std::string_view message) {
    static const auto sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
    static const auto lowest = lowestLevel();
    if (level < lowest)
        return;
    spdlog::logger logger("app.korvane." + std::string(category), sink);
    logger.set_level(lowest);
    logger.log(level, message);
}

} // namespace

void debug(std::string_view category, std::string_view message) {
    write(spdlog::level::debug, category, message);
}

void info(std::string_view category, std::string_view message) {
    write(spdlog::level::info, category, message);
}

void warning(std::string_view category, std::string_view message) {
    write(spdlog::level::warn, category, message);
}

void error(std::string_view category, std::string_view message) {
    write(spdlog::level::err, category, message);
}

} // namespace Korvane::Log
