#include "KorvaneCore/sync/SyncRoots.hpp"

#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Log.hpp"

namespace Korvane::SyncRoots {

namespace {

const std::string folder = "syncRoots";

std::string keyOf(const std::string& id) {
    return folder + "/" + id;
}

std::optional<SyncRoot> read(const std::string& key, const std::string& json) {
    try {
        return KRJSON::read<SyncRoot>(json);
    } catch (const JSONError& error) {
        Log::error("sync", key + " cannot be read: " + error.what());
        return std::nullopt;
    }
}

} // namespace

std::vector<SyncRoot> all(LocalIndex& index) {
    std::vector<SyncRoot> roots;
    for (const auto& [key, json] : index.values(folder))
        if (auto root = read(key, json))
            roots.push_back(*std::move(root));
    return roots;
}

std::optional<SyncRoot> find(LocalIndex& index, const std::string& id) {
    const auto json = index.value(keyOf(id));
    return json ? read(keyOf(id), *json) : std::nullopt;
}

void add(LocalIndex& index, const SyncRoot& root) {
    index.setValue(KRJSON::write(root), keyOf(root.id));
}

void remove(LocalIndex& index, const std::string& id) {
    index.setValue(std::nullopt, keyOf(id));
    index.clearBase(id);
}

} // namespace Korvane::SyncRoots
