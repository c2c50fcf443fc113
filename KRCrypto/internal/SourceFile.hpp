#pragma once

#include "KRCrypto/Bytes.hpp"

#include <cstdint>
#include <filesystem>

namespace KRCrypto::Internal {

// What the file system says of the path's size in bytes, whatever kind of file it names. Throws
// std::system_error.
std::int64_t sizeAttribute(const std::filesystem::path& path);

// A regular file open for reading. Failures are std::system_error with the system's code, directories and
// devices included; nothing waits for a pipe's other end.
class SourceFile {
public:
    explicit SourceFile(const std::filesystem::path& path);
    ~SourceFile();
    SourceFile(const SourceFile&) = delete;
    SourceFile& operator=(const SourceFile&) = delete;

    std::int64_t size() const; // now, in bytes

    // Reads until `out` is full or the file ends; returns how much was read.
    std::size_t readAt(std::int64_t offset, MutableBytes out) const;

    // Throws FileChangedDuringRead when the file ends before `out` is full.
    void readExactlyAt(std::int64_t offset, MutableBytes out) const;

private:
    [[noreturn]] void fail(int code) const;

    std::filesystem::path path_;
    int descriptor_ = -1;
};

} // namespace KRCrypto::Internal
