#include "KorvaneCore/queue/TransferOrigin.hpp"

#include "KorvaneCore/json/KRJSON.hpp"

#include <boost/mp11/algorithm.hpp>

namespace Korvane {

std::optional<std::string> TransferOrigin::dedupeKey() const {
    if (const auto* sync = as<Sync>())
        return "sync:" + sync->rootId + ":" + sync->relPath;
    if (const auto* camera = as<Camera>())
        return "camera:" + camera->assetId;
    return std::nullopt;
}

bool TransferOrigin::namesOneThing() const noexcept {
    return as<Sync>() != nullptr || as<Camera>() != nullptr || as<Note>() != nullptr;
}

boost::json::value encodeJSON(const TransferOrigin& origin) {
    boost::json::object object;
    std::visit([&]<class C>(const C& value) { object.emplace(C::name, KRJSON::encode(value)); },
               origin.value());
    return object;
}

void decodeJSON(const boost::json::value& json, TransferOrigin& origin) {
    const auto& object = KRJSON::Detail::object(json);
    int cases = 0;
    boost::mp11::mp_for_each<TransferOrigin::Case>([&]<class C>(const C&) {
        if (!object.contains(C::name))
            return;
        C value;
        KRJSON::readMember(object, C::name, value);
        origin = std::move(value);
        ++cases;
    });
    if (cases != 1)
        throw JSONError("expected one known origin, got " + std::to_string(cases));
}

} // namespace Korvane
