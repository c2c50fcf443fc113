#include "tests/support/TemporaryFolder.hpp"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace Korvane::Testing {

TemporaryFolder::TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "korvane-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no temporary folder");
    path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(path_, ignored);
}

ScopedEnvironment::ScopedEnvironment(std::string name, const std::optional<std::string>& value)
    : name_(std::move(name)) {
    if (const char* before = std::getenv(name_.c_str()); before != nullptr)
        before_ = before;
    if (value)
        ::setenv(name_.c_str(), value->c_str(), 1);
    else
        ::unsetenv(name_.c_str());
}

ScopedEnvironment::~ScopedEnvironment() {
    if (before_)
        ::setenv(name_.c_str(), before_->c_str(), 1);
    else
        ::unsetenv(name_.c_str());
}

void writeFile(const std::filesystem::path& file, std::string_view bytes) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    if (!(stream << bytes))
        throw std::runtime_error("cannot write " + file.string());
}

} // namespace Korvane::Testing
