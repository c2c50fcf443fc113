#pragma once

#include <unistd.h>

#include <utility>

namespace Korvane {

/// Owns one open descriptor, or none (-1).
class FileDescriptor {
public:
    FileDescriptor() = default;

    explicit FileDescriptor(int fd) noexcept : fd_(fd) {}

    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            close();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }

    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    ~FileDescriptor() { close(); }

    [[nodiscard]] int get() const noexcept { return fd_; }

    [[nodiscard]] bool isOpen() const noexcept { return fd_ >= 0; }

    /// Gives the descriptor up to somebody else.
    [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }

    void close() noexcept {
        if (fd_ >= 0)
            ::close(std::exchange(fd_, -1));
    }

private:
    int fd_ = -1;
};

} // namespace Korvane
