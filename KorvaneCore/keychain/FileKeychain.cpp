#include "KorvaneCore/keychain/FileKeychain.hpp"

#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/FileLock.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"

namespace Korvane {

namespace {

constexpr std::size_t maxFileBytes = 1 << 20;

} // namespace

FileKeychain::FileKeychain(std::filesystem::path file) : file_(std::move(file)) {}

bool FileKeychain::exists() const {
    std::error_code unreadable;
    return std::filesystem::exists(std::filesystem::symlink_status(file_, unreadable));
}

std::optional<KRCrypto::SecretBytes> FileKeychain::read(Key key) {
    auto items = load();
    const auto found = items.find(std::string(name(key)));
    return found == items.end() ? std::nullopt : std::optional(std::move(found->second));
}

void FileKeychain::write(const std::vector<Item>& items) {
    change(WhenDamaged::refuse, [&](Items& stored) {
        for (const auto& [key, value] : items)
            stored.insert_or_assign(std::string(name(key)), value);
    });
}

void FileKeychain::remove(const std::vector<Key>& keys) {
    if (!exists())
        return;
    change(WhenDamaged::setAside, [&](Items& stored) {
        for (const auto key : keys)
            stored.erase(std::string(name(key)));
    });
}

FileKeychain::Items FileKeychain::load() const {
    try {
        auto text = readFile(file_, maxFileBytes);
        const KRCrypto::WipedAtEnd wiped(text);
        const KRJSON::Document document(text);
        return KRJSON::decodeNested<Items>(document.value());
    } catch (const FileError& error) {
        if (error.code() == std::errc::no_such_file_or_directory)
            return {};
        throw KeychainError(error.what());
    } catch (const JSONError& error) {
        throw KeychainDamaged("The keychain file is damaged: " + std::string(error.what()) +
                              "; signing in again keeps it aside and begins a new one");
    }
}

FileKeychain::Items FileKeychain::loadOrSetAside() const {
    try {
        return load();
    } catch (const KeychainDamaged& error) {
        const auto name = file_.string() + ".damaged";
        std::filesystem::path aside(name);
        for (int number = 2; std::filesystem::exists(std::filesystem::symlink_status(aside)); ++number)
            aside = name + "." + std::to_string(number);
        std::filesystem::rename(file_, aside);
        Log::warning("keychain", "the damaged keychain file is kept as " + aside.filename().string());
        return {};
    }
}

void FileKeychain::change(WhenDamaged whenDamaged, const std::function<void(Items&)>& edit) {
    try {
        auto lockFile = file_;
        FileLock lock(lockFile += ".lock");
        lock.lock();
        auto items = whenDamaged == WhenDamaged::setAside ? loadOrSetAside() : load();
        edit(items);
        auto text = KRJSON::write(items);
        const KRCrypto::WipedAtEnd wiped(text);
        replaceFile(file_, text, 0600);
    } catch (const FileError& error) {
        throw KeychainError(error.what());
    } catch (const std::filesystem::filesystem_error& error) {
        throw KeychainError(error.what());
    }
}

} // namespace Korvane
