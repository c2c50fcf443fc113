#pragma once

#include "KorvaneCore/api/records/Device.hpp"
#include "KorvaneCore/api/records/RemoteFile.hpp"
#include "KorvaneCore/api/records/RemoteFolder.hpp"
#include "KorvaneCore/api/records/Shares.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Korvane {

/// What a change is about. A text this client does not know is `unknown`, so that a newer server's page can
/// be read.
enum class EntityType { file, folder, share, device, account, unknown };
BOOST_DESCRIBE_ENUM(EntityType, file, folder, share, device, account, unknown)

/// What happened. `remove` is "delete" on the wire; unknown texts are `unknown`.
enum class ChangeOp { create, update, move, remove, restore, purge, version, unknown };

[[nodiscard]] KRJSON::Value encodeJSON(EntityType type);
void decodeJSON(const KRJSON::Value& json, EntityType& type);
[[nodiscard]] KRJSON::Value encodeJSON(ChangeOp op);
void decodeJSON(const KRJSON::Value& json, ChangeOp& op);

/// An entity this client cannot read: of another type, or not the record its type promises.
struct OtherEntity {
    bool operator==(const OtherEntity&) const = default;
};

using ChangeEntity = std::variant<RemoteFile, RemoteFolder, Share, Device, OtherEntity>;

/// One step of the account's history. On the wire the entity is the bare record of its type.
struct Change {
    std::int64_t seq = 0;
    EntityType entityType = EntityType::unknown;
    std::string entityId;
    ChangeOp op = ChangeOp::unknown;
    std::optional<std::string> deviceId;
    std::optional<KRJSON::Date> createdAt;
    std::optional<ChangeEntity> entity;

    bool operator==(const Change&) const = default;
};

/// An `OtherEntity` is written as an empty object.
[[nodiscard]] KRJSON::Value encodeJSON(const Change& change);
void decodeJSON(const KRJSON::Value& json, Change& change);

struct ChangesPage {
    std::vector<Change> changes;
    std::int64_t latestSeq = 0;
    bool hasMore = false;

    bool operator==(const ChangesPage&) const = default;
};
BOOST_DESCRIBE_STRUCT(ChangesPage, (), (changes, latestSeq, hasMore))

} // namespace Korvane
