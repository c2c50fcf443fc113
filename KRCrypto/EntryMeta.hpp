#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace KRCrypto {

// What a file's sealed metadata says. Texts are UTF-8.
struct FileMeta {
    FileMeta(std::string name_, std::string mime_, std::int64_t size_, std::string sha256_,
             std::optional<std::string> mtime_ = std::nullopt)
        : name(std::move(name_)),
          mime(std::move(mime_)),
          size(size_),
          sha256(std::move(sha256_)),
          mtime(std::move(mtime_)) {}

    std::int64_t v = 1;
    std::string name;
    std::string mime;
    std::int64_t size;                // plaintext bytes
    std::string sha256;               // 64 hex digits, of the plaintext
    std::optional<std::string> mtime; // as its writer wrote it

    bool operator==(const FileMeta&) const = default;
};

struct FolderMeta {
    explicit FolderMeta(std::string name_) : name(std::move(name_)) {}

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

    const std::string& name() const noexcept {
        const FileMeta* meta = file();
        return meta != nullptr ? meta->name : std::get_if<FolderMeta>(&value_)->name;
    }

    // Null for a folder.
    const FileMeta* file() const noexcept { return std::get_if<FileMeta>(&value_); }

    bool operator==(const EntryMeta&) const = default;

private:
    std::variant<FileMeta, FolderMeta> value_;
};

} // namespace KRCrypto
