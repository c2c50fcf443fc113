#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The little JSON the sealed records need. Writing is done by hand, so that the same record always gives the
// same bytes.
namespace KRCrypto::Internal {

// Most bytes of a record: four times the largest Quick Send item.
inline constexpr std::size_t mostRecordBytes = 262144;

// Appends a JSON string. Escaped are `"`, `\` and what lies below U+0020; all else stays UTF-8. Throws
// InvalidEncoding when the text is not UTF-8.
void appendQuoted(std::string& json, std::string_view text);

// Most bytes appendQuoted adds for a text of that size.
constexpr std::size_t mostQuoted(std::size_t size) noexcept {
    return 6 * size + 2;
}

// Reads a record. Everything that is not as asked for throws InvalidMeta: text that is not one JSON object
// (at most mostRecordBytes long and 512 deep, valid UTF-8, nothing before or after it), missing keys, other
// types, numbers that are not integers of 64 bits. Of equal keys the last one counts; keys not asked for are
// ignored. What it allocates is wiped.
class JsonRecord {
public:
    explicit JsonRecord(ByteView json);

    bool has(std::string_view key) const;
    std::int64_t integer(std::string_view key) const;
    std::string text(std::string_view key) const;
    SecretBytes secretText(std::string_view key) const;
    std::optional<std::string> optionalText(std::string_view key) const; // null counts as absent

private:
    const boost::json::value& member(std::string_view key) const;
    std::string_view textView(std::string_view key) const;

    boost::json::object object_;
};

} // namespace KRCrypto::Internal
