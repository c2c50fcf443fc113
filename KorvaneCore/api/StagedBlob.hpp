#pragma once

#include <filesystem>
#include <utility>

namespace Korvane {

/// A file of sealed bytes on their way, removed at the end of its owner.
class StagedBlob {
public:
    StagedBlob() = default;

    explicit StagedBlob(std::filesystem::path file) : file_(std::move(file)) {}

    StagedBlob(StagedBlob&& other) noexcept : file_(std::exchange(other.file_, {})) {}

    StagedBlob& operator=(StagedBlob&& other) noexcept {
        std::swap(file_, other.file_);
        return *this;
    }

    StagedBlob(const StagedBlob&) = delete;
    StagedBlob& operator=(const StagedBlob&) = delete;

    ~StagedBlob();

    [[nodiscard]] const std::filesystem::path& file() const noexcept { return file_; }

private:
    std::filesystem::path file_;
};

} // namespace Korvane
