#include "KRCrypto/QuickSendJSON.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/internal/JsonText.hpp"

namespace KRCrypto::QuickSendJSON {

namespace {

using Internal::appendQuoted;
using Internal::JsonRecord;

constexpr std::int64_t version = 1;

struct EncodeContent {
    std::string& json;

    void member(std::string_view key, std::string_view text) const {
        json.append(",\"").append(key).append("\":");
        appendQuoted(json, text);
    }

    void operator()(const QuickSendPayload::Text& content) const {
        member("kind", "text");
        member("text", content.text);
    }

    void operator()(const QuickSendPayload::Link& content) const {
        member("kind", "link");
        member("url", content.url);
    }

    void operator()(const QuickSendPayload::File& content) const {
        member("kind", "file");
        member("fileId", content.fileId);
        member("name", content.name);
        member("mime", content.mime);
        json.append(",\"size\":").append(std::to_string(content.size));
    }
};

QuickSendPayload::Content contentOf(const JsonRecord& record) {
    const std::string kind = record.text("kind");
    if (kind == "text") {
        return QuickSendPayload::Text{record.text("text")};
    }
    if (kind == "link") {
        return QuickSendPayload::Link{record.text("url")};
    }
    if (kind == "file") {
        return QuickSendPayload::File{.fileId = record.text("fileId"),
                                      .name = record.text("name"),
                                      .mime = record.text("mime"),
                                      .size = record.integer("size")};
    }
    throw KRCryptoError(KRCryptoError::InvalidMeta{});
}

} // namespace

Bytes encode(const QuickSendPayload& payload) {
    std::string json = "{\"v\":1";
    const EncodeContent encoder{json};
    std::visit(encoder, payload.content);
    encoder.member("sentAt", payload.sentAt);
    json += '}';
    const ByteView bytes = asBytes(json);
    return {bytes.begin(), bytes.end()};
}

QuickSendPayload decode(ByteView json) {
    const JsonRecord record(json);
    if (record.integer("v") != version) {
        throw KRCryptoError(KRCryptoError::InvalidMeta{});
    }
    return {.sentAt = record.text("sentAt"), .content = contentOf(record)};
}

} // namespace KRCrypto::QuickSendJSON
