#include "KorvaneCore/config/SharedDefaults.hpp"

#include "KorvaneCore/config/BuildChannel.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/platform/Bundle.hpp"
#include "KorvaneCore/platform/Mutex.hpp"
#include "KorvaneCore/platform/UserFolders.hpp"

namespace Korvane::SharedDefaults {

namespace {

struct Suites {
    Mutex mutex;
    std::shared_ptr<UserDefaults> testOverride KR_GUARDED_BY(mutex);
    std::shared_ptr<UserDefaults> opened KR_GUARDED_BY(mutex);
};

Suites& suites() {
    static Suites instance;
    return instance;
}

/// All channels share one file; the key prefix keeps them apart.
std::filesystem::path suiteFile() {
    const std::filesystem::path preferences = "Library/Preferences";
    const auto shared = SharedContainer::overrideURL();
    const auto container = shared ? shared : UserFolders::groupContainer(KRIdentifiers::appGroup);
    if (container)
        return *container / preferences / (std::string(KRIdentifiers::appGroup) + ".plist");
    return SharedContainer::location() / preferences / (programPath().filename().string() + ".plist");
}

} // namespace

SharedDefaultsStore store() {
    const auto channel = BuildChannel::current();
    const auto prefix = channel.empty() ? std::string() : std::string(channel) + ".";
    const auto file = suiteFile();

    auto& shared = suites();
    const MutexLock lock(shared.mutex);
    if (shared.testOverride)
        return {shared.testOverride, prefix};
    if (!shared.opened || shared.opened->file() != file)
        shared.opened = std::make_shared<UserDefaults>(file);
    return {shared.opened, prefix};
}

void setTestOverride(std::shared_ptr<UserDefaults> defaults) {
    auto& shared = suites();
    const MutexLock lock(shared.mutex);
    shared.testOverride = std::move(defaults);
}

std::shared_ptr<UserDefaults> testOverride() {
    auto& shared = suites();
    const MutexLock lock(shared.mutex);
    return shared.testOverride;
}

} // namespace Korvane::SharedDefaults
