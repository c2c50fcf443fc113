#include "KorvaneCore/sync/SyncRoots.hpp"

#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <charconv>
#include <cstdint>

namespace Korvane::SyncRoots {

namespace {

const std::string folder = "syncRoots";

std::string keyOf(const std::string& id) {
    return folder + "/" + id;
}

std::string lookKeyOf(const std::string& id) {
    return "syncLooks/" + id;
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

std::chrono::system_clock::time_point lookedAt(LocalIndex& index, const std::string& id) {
    const auto text = index.value(lookKeyOf(id)).value_or("0");
    std::int64_t milliseconds = 0; // unless there is a number
    std::from_chars(text.data(), text.data() + text.size(), milliseconds);
    return std::chrono::system_clock::time_point(std::chrono::milliseconds(milliseconds));
}

void setLookedAt(LocalIndex& index, const std::string& id, std::chrono::system_clock::time_point time) {
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
    index.setValue(std::to_string(milliseconds), lookKeyOf(id));
}

void remove(LocalIndex& index, const std::string& id) {
    index.setValues({{keyOf(id), std::nullopt}, {lookKeyOf(id), std::nullopt}});
    index.clearBase(id);
}

} // namespace Korvane::SyncRoots
