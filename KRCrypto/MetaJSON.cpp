#include "KRCrypto/MetaJSON.hpp"

#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/UnicodeText.hpp"
#include "KRCrypto/internal/JsonText.hpp"

#include <algorithm>

namespace KRCrypto::MetaJSON {

namespace {

using Internal::appendQuoted;

constexpr std::int64_t version = 1;
constexpr std::size_t hashDigits = 64;

void appendStart(std::string& json, std::int64_t v, std::string_view name) {
    json.append("{\"v\":").append(std::to_string(v)).append(",\"name\":");
    appendQuoted(json, toNFC(name));
}

struct Encode {
    std::string& json;

    void operator()(const FolderMeta& folder) const {
        appendStart(json, folder.v, folder.name);
        json += '}';
    }

    void operator()(const FileMeta& file) const {
        appendStart(json, file.v, file.name);
        json += ",\"mime\":";
        appendQuoted(json, file.mime);
        json.append(",\"size\":").append(std::to_string(file.size)).append(",\"sha256\":");
        appendQuoted(json, file.sha256);
        if (file.mtime) {
            json += ",\"mtime\":";
            appendQuoted(json, *file.mtime);
        }
        json += '}';
    }
};

bool valid(const FolderMeta& folder) {
    return folder.v == version;
}

bool valid(const FileMeta& file) {
    return file.v == version && file.size >= 0 && file.sha256.size() == hashDigits &&
           std::ranges::all_of(file.sha256, [](char c) { return Hex::digitValue(c) >= 0; });
}

} // namespace

Bytes encode(const EntryMeta& meta) {
    std::string json;
    std::visit(Encode{json}, meta.value());
    const ByteView bytes = asBytes(json);
    return {bytes.begin(), bytes.end()};
}

EntryMeta decode(ByteView json) {
    const Internal::JsonRecord record(json);
    const std::int64_t v = record.integer("v");
    std::string name = record.text("name");
    if (!record.has("mime")) {
        FolderMeta folder(std::move(name));
        folder.v = v;
        return folder;
    }
    FileMeta file(std::move(name), record.text("mime"), record.integer("size"), record.text("sha256"),
                  record.optionalText("mtime"));
    file.v = v;
    return file;
}

void validate(const EntryMeta& meta) {
    if (!std::visit([](const auto& entry) { return valid(entry); }, meta.value())) {
        throw KRCryptoError(KRCryptoError::InvalidMeta{});
    }
}

EntryMeta decodeValid(ByteView json) {
    EntryMeta meta = decode(json);
    validate(meta);
    return meta;
}

} // namespace KRCrypto::MetaJSON
