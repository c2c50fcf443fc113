#pragma once

#include "KorvaneCore/json/KRJSON.hpp"

#include <boost/describe.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

/// One of the user's devices. The platform is any text, so that newer kinds can be listed.
struct Device {
    std::string id;
    std::string name;
    std::string platform;
    std::optional<KRJSON::Date> createdAt;
    std::optional<KRJSON::Date> lastSeenAt;
    std::optional<KRJSON::Date> revokedAt;
    std::optional<bool> current;

    bool operator==(const Device&) const = default;
};
BOOST_DESCRIBE_STRUCT(Device, (), (id, name, platform, createdAt, lastSeenAt, revokedAt, current))

struct DevicesResponse {
    std::vector<Device> devices;

    bool operator==(const DevicesResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(DevicesResponse, (), (devices))

struct DeviceEnvelope {
    Device device;

    bool operator==(const DeviceEnvelope&) const = default;
};
BOOST_DESCRIBE_STRUCT(DeviceEnvelope, (), (device))

struct DevicePatchRequest {
    std::optional<std::string> name;
    std::optional<std::string> pushToken;

    bool operator==(const DevicePatchRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(DevicePatchRequest, (), (name, pushToken))

} // namespace Korvane
