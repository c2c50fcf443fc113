#include "KorvaneCore/account/AccountSession.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <filesystem>

namespace Korvane::StoredSession {

namespace {

constexpr const char* fileName = "account.json";
constexpr std::size_t largest = std::size_t{64} << 10;

} // namespace

std::optional<AccountSession> read() {
    const auto file = SharedContainer::location() / fileName;
    if (!std::filesystem::exists(file))
        return std::nullopt;
    try {
        return KRJSON::read<AccountSession>(readFile(file, largest));
    } catch (const JSONError& error) {
        Log::warning("account", std::string("the stored session is damaged: ") + error.what());
        return std::nullopt;
    }
}

void write(const AccountSession& session) {
    replaceFile(SharedContainer::url() / fileName, KRJSON::write(session));
}

void remove() {
    const auto file = SharedContainer::location() / fileName;
    std::error_code error;
    std::filesystem::remove(file, error);
    if (error)
        throw FileError("remove", file, error);
}

} // namespace Korvane::StoredSession
