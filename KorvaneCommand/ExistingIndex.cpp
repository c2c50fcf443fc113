#include "KorvaneCommand/ExistingIndex.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"

#include <stdexcept>

namespace Korvane {

std::filesystem::path existingIndex() {
    // databaseURL() would create the container.
    auto url = SharedContainer::location() / "index.sqlite";
    if (!std::filesystem::exists(url))
        throw std::runtime_error("there is no local index yet");
    return url;
}

} // namespace Korvane
