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

/// Messages quote the service, which is not to steer the terminal: "?" for each control character in UTF-8.
std::string printable(std::string_view message) {
    const auto byteAt = [&](std::size_t i) {
        return static_cast<unsigned char>(i < message.size() ? message[i] : ' ');
    };
    std::string shown;
    for (std::size_t i = 0; i < message.size(); ++i) {
        const bool isTwoBytes = byteAt(i) == 0xC2 && byteAt(i + 1) >= 0x80 && byteAt(i + 1) < 0xA0;
        const bool isControl = isTwoBytes || byteAt(i) < 0x20 || byteAt(i) == 0x7F;
        shown += isControl ? '?' : message[i];
        i += isTwoBytes ? 1 : 0;
    }
    return shown;
}

void write(spdlog::level::level_enum level, std::string_view category, std::string_view message) {
    static const auto sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
    static const auto lowest = lowestLevel();
    if (level < lowest)
        return;
    spdlog::logger logger("app.korvane." + std::string(category), sink);
    logger.set_level(lowest);
    logger.log(level, printable(message));
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
