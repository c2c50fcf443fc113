#include "KorvaneCore/api/records/Shares.hpp"

namespace Korvane {

KRJSON::Value encodeJSON(const UpdateShareEntriesRequest& request) {
    boost::json::object object;
    KRJSON::writeMember(object, "upsert", request.upsert);
    KRJSON::writeMember(object, "delete", request.remove);
    return object;
}

void decodeJSON(const KRJSON::Value& json, UpdateShareEntriesRequest& request) {
    const auto& object = KRJSON::Detail::object(json);
    KRJSON::readMember(object, "upsert", request.upsert);
    KRJSON::readMember(object, "delete", request.remove);
}

} // namespace Korvane
