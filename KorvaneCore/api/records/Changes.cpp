#include "KorvaneCore/api/records/Changes.hpp"

#include <array>
#include <string_view>
#include <utility>

namespace Korvane {

namespace {

constexpr std::array<std::pair<std::string_view, ChangeOp>, 8> opTexts{{{"create", ChangeOp::create},
                                                                        {"update", ChangeOp::update},
                                                                        {"move", ChangeOp::move},
                                                                        {"delete", ChangeOp::remove},
                                                                        {"restore", ChangeOp::restore},
                                                                        {"purge", ChangeOp::purge},
                                                                        {"version", ChangeOp::version},
                                                                        {"unknown", ChangeOp::unknown}}};

/// What does not read as the record of its type must not fail the whole page.
template <class Record>
ChangeEntity entityOr(const KRJSON::Value& json) {
    try {
        return KRJSON::decodeNested<Record>(json);
    } catch (const JSONError&) {
        return OtherEntity{};
    }
}

ChangeEntity decodeEntity(EntityType type, const KRJSON::Value& json) {
    switch (type) {
    case EntityType::file:
        return entityOr<RemoteFile>(json);
    case EntityType::folder:
        return entityOr<RemoteFolder>(json);
    case EntityType::share:
        return entityOr<Share>(json);
    case EntityType::device:
        return entityOr<Device>(json);
    case EntityType::account:
    case EntityType::unknown:
        break;
    }
    return OtherEntity{};
}

struct EncodeEntity {
    KRJSON::Value operator()(const OtherEntity&) const { return boost::json::object(); }

    template <class Record>
    KRJSON::Value operator()(const Record& record) const {
        return KRJSON::encode(record);
    }
};

} // namespace

KRJSON::Value encodeJSON(EntityType type) {
    return boost::describe::enum_to_string(type, "");
}

void decodeJSON(const KRJSON::Value& json, EntityType& type) {
    if (!boost::describe::enum_from_string(KRJSON::Detail::string(json).c_str(), type))
        type = EntityType::unknown;
}

KRJSON::Value encodeJSON(ChangeOp op) {
    for (const auto& [text, value] : opTexts)
        if (value == op)
            return boost::json::string_view(text);
    return "unknown";
}

void decodeJSON(const KRJSON::Value& json, ChangeOp& op) {
    const auto found = KRJSON::Detail::string(json);
    op = ChangeOp::unknown;
    for (const auto& [text, value] : opTexts)
        if (text == found)
            op = value;
}

KRJSON::Value encodeJSON(const Change& change) {
    boost::json::object object;
    KRJSON::writeMember(object, "seq", change.seq);
    KRJSON::writeMember(object, "entityType", change.entityType);
    KRJSON::writeMember(object, "entityId", change.entityId);
    KRJSON::writeMember(object, "op", change.op);
    KRJSON::writeMember(object, "deviceId", change.deviceId);
    KRJSON::writeMember(object, "createdAt", change.createdAt);
    if (change.entity)
        object.emplace("entity", std::visit(EncodeEntity{}, *change.entity));
    return object;
}

void decodeJSON(const KRJSON::Value& json, Change& change) {
    const auto& object = KRJSON::Detail::object(json);
    KRJSON::readMember(object, "seq", change.seq);
    KRJSON::readMember(object, "entityType", change.entityType);
    KRJSON::readMember(object, "entityId", change.entityId);
    KRJSON::readMember(object, "op", change.op);
    KRJSON::readMember(object, "deviceId", change.deviceId);
    KRJSON::readMember(object, "createdAt", change.createdAt);
    change.entity.reset();
    if (const auto* entity = object.if_contains("entity"); entity != nullptr && !entity->is_null())
        change.entity = decodeEntity(change.entityType, *entity);
}

} // namespace Korvane
