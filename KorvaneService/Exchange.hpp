#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/storage/SQLiteDatabase.hpp"
#include "KorvaneService/Refusal.hpp"

#include <boost/beast/http/fields.hpp>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Korvane {

class ServiceState;

/// One request, read whole.
struct Request {
    std::string method;
    std::vector<std::string> path; ///< its segments, percent-decoded
    std::map<std::string, std::string> query;
    boost::beast::http::fields headers;
    KRCrypto::Bytes body;
};

/// Part of a file, sent as it lies.
struct FileSlice {
    std::filesystem::path file;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
};

/// One answer: `body`, or the slices when there are any.
struct Reply {
    unsigned status = 200;
    std::string contentType = "application/json";
    std::string body;
    std::vector<FileSlice> slices;
    std::vector<std::pair<std::string, std::string>> headers;

    [[nodiscard]] std::uint64_t length() const {
        std::uint64_t sum = body.size();
        for (const auto& slice : slices)
            sum += slice.length;
        return sum;
    }
};

/// Who calls, on routes for signed-in devices.
struct Session {
    std::string userId;
    std::string deviceId;
};

/// A request being answered, inside the transaction that all its changes are made in.
struct Exchange {
    const Request& request;
    ServiceState& state;
    SQLiteDatabase& database;
    std::map<std::string, std::string> parameters; ///< of the route's pattern
    Session session;

    /// Files and folders to remove once the transaction has been committed.
    std::vector<std::filesystem::path> discarded;

    [[nodiscard]] const std::string& parameter(const std::string& name) const { return parameters.at(name); }

    [[nodiscard]] std::optional<std::string> query(const std::string& name) const {
        const auto found = request.query.find(name);
        return found == request.query.end() ? std::nullopt : std::optional(found->second);
    }

    /// The JSON body as a record. Throws Refusal.
    template <class Record>
    [[nodiscard]] Record body() const {
        try {
            return KRJSON::read<Record>(KRCrypto::asText(request.body));
        } catch (const JSONError& error) {
            throw Refusal::badRequest(error.what());
        }
    }
};

template <class Record>
[[nodiscard]] Reply answer(const Record& record) {
    Reply reply;
    reply.body = KRJSON::write(record);
    return reply;
}

[[nodiscard]] inline Reply noContent() {
    Reply reply;
    reply.status = 204;
    return reply;
}

} // namespace Korvane
