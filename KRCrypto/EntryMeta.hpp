#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace KRCrypto {

// What a file's sealed metadata says. Texts are UTF-8.
struct FileMeta {
    FileMeta(std::string itsName, std::string itsMime, std::int64_t itsSize, std::string itsSha256,
             std::optional<std::string> itsMtime = std::nullopt)
        : name(std::move(itsName)),
          mime(std::move(itsMime)),
          size(itsSize),
          sha256(std::move(itsSha256)),
          mtime(std::move(itsMtime)) {}

    std::int64_t v = 1;
    std::string name;
    std::string mime;
    std::int64_t size;                // plaintext bytes
    std::string sha256;               // 64 hex digits, of the plaintext
    std::optional<std::string> mtime; // as its writer wrote it

    bool operator==(const FileMeta&) const = default;
};

struct FolderMeta {
    explicit FolderMeta(std::string itsName) : name(std::move(itsName)) {}

    std::int64_t v = 1;
    std::string name;

    bool operator==(const FolderMeta&) const = default;
};

// The metadata of either.
class EntryMeta {
public:
    EntryMeta(FileMeta file) : value_(std::move(file)) {} // NOLINT(google-explicit-constructor)

    EntryMeta(FolderMeta folder) : value_(std::move(folder)) {} // NOLINT(google-explicit-constructor)

    const std::variant<FileMeta, FolderMeta>& value() const noexcept { return value_; }

    const std::string& name() const {
        return std::visit([](const auto& entry) -> const std::string& { return entry.name; }, value_);
    }

    // Null for a folder.
    const FileMeta* file() const noexcept { return std::get_if<FileMeta>(&value_); }

    bool operator==(const EntryMeta&) const = default;

private:
    std::variant<FileMeta, FolderMeta> value_;
};

} // namespace KRCrypto
