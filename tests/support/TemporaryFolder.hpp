#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace Korvane::Testing {

/// A new empty folder, removed with its content at the end.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

/// Sets an environment variable, or unsets it, until the end of the scope.
class ScopedEnvironment {
public:
    ScopedEnvironment(std::string name, const std::optional<std::string>& value);
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment();

private:
    std::string name_;
    std::optional<std::string> before_;
};

/// A container of the test's own, in place of the user's, until the end of the scope.
class TemporaryContainer {
public:
    [[nodiscard]] std::filesystem::path path() const { return folder_ / "group.app.korvane"; }

private:
    TemporaryFolder folder_;
    ScopedEnvironment dataHome_{"XDG_DATA_HOME", folder_.path().string()};
};

void writeFile(const std::filesystem::path& file, std::string_view bytes);

} // namespace Korvane::Testing
