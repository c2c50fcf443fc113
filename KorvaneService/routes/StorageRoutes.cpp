#include "KorvaneCore/api/records/Uploads.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneService/Columns.hpp"
#include "KorvaneService/ServiceState.hpp"
#include "KorvaneService/routes/Routes.hpp"

#include <charconv>
#include <utility>

namespace Korvane {

namespace {

std::int64_t numberIn(std::string_view text) {
    std::int64_t number = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? number : -1;
}

Reply putPart(Exchange& exchange) {
    const auto& id = exchange.parameter("upload");
    const auto part = numberIn(exchange.parameter("part"));
    const auto rows = exchange.database.query("SELECT * FROM uploads WHERE id = ? AND file_id IS NULL", id);
    if (rows.empty() || rows[0].date("expires_at") <= exchange.state.now())
        throw Refusal::notFound("no such upload");
    const auto& blobs = exchange.state.blobs();
    const auto& bytes = exchange.request.body;
    if (std::ssize(bytes) != blobs.partSize(part, Columns::integer(rows[0], "encrypted_size")))
        throw Refusal::invalidPartLayout("the part has another size");
    try {
        blobs.putPart(id, part, bytes);
    } catch (const FileError& error) {
        if (error.code() == std::errc::no_such_file_or_directory)
            throw Refusal::notFound("no such upload"); // completed or aborted meanwhile
        throw;
    }
    exchange.database.run("INSERT OR IGNORE INTO upload_parts (upload_id, part_number) "
                          "SELECT id, ? FROM uploads WHERE id = ?",
                          part, id);
    PartUploadResponse response;
    response.partNumber = part;
    auto reply = answer(response);
    reply.headers.emplace_back("ETag", "\"" + id + "-" + std::to_string(part) + "\"");
    return reply;
}

/// First byte and length of a "bytes=first-last" header over `size` bytes; none for anything else (RFC 9110
/// lets a server answer in full).
std::optional<std::pair<std::int64_t, std::int64_t>> rangeOf(std::string_view header, std::int64_t size) {
    static constexpr std::string_view unit = "bytes=";
    const auto dash = header.find('-');
    if (!header.starts_with(unit) || dash == std::string_view::npos)
        return std::nullopt;
    const auto first = numberIn(header.substr(unit.size(), dash - unit.size()));
    const auto lastText = header.substr(dash + 1);
    const auto last = lastText.empty() ? size - 1 : numberIn(lastText);
    if (first < 0 || last < first)
        return std::nullopt;
    return std::pair(first, std::min(last, size - 1) - first + 1);
}

Reply getBlob(Exchange& exchange) {
    const auto& folder = exchange.parameter("blob");
    const auto rows = exchange.database.query("SELECT encrypted_size FROM blobs WHERE folder = ?", folder);
    if (rows.empty())
        throw Refusal::notFound("no such blob");
    const auto size = Columns::integer(rows[0], "encrypted_size");
    const auto header = exchange.request.headers[boost::beast::http::field::range];
    const auto range = rangeOf({header.data(), header.size()}, size);
    Reply reply;
    reply.contentType = "application/octet-stream";
    reply.headers.emplace_back("Accept-Ranges", "bytes");
    if (range && range->first >= size)
        throw Refusal(416, "range", "the blob is shorter");
    if (range) {
        reply.status = 206;
        reply.headers.emplace_back("Content-Range", "bytes " + std::to_string(range->first) + "-" +
                                                        std::to_string(range->first + range->second - 1) +
                                                        "/" + std::to_string(size));
    }
    reply.slices =
        exchange.state.blobs().slices(folder, range ? range->first : 0, range ? range->second : size);
    return reply;
}

} // namespace

void addStorageRoutes(Router& router) {
    router.add("PUT", "/storage/parts/{upload}/{part}", Router::Access::signedURL, putPart);
    router.add("GET", "/storage/blobs/{blob}", Router::Access::signedURL, getBlob);
}

} // namespace Korvane
