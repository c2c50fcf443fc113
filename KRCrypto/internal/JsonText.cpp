#include "KRCrypto/internal/JsonText.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/UnicodeText.hpp"

#include <boost/json/memory_resource.hpp>
#include <boost/json/parser.hpp>

#include <array>
#include <cstdio>
#include <new>
#include <utility>

namespace KRCrypto::Internal {

namespace {

constexpr std::size_t deepestNesting = 512;

[[noreturn]] void refuse() {
    throw KRCryptoError(KRCryptoError::InvalidMeta{});
}

// Memory for parsed records, overwritten before it goes back. Alignments are left to operator new, which
// meets every one the parser asks for: it gives some blocks back with another alignment than it took them
// with.
class WipingResource final : public boost::json::memory_resource {
    void* do_allocate(std::size_t size, std::size_t /*alignment*/) override { return ::operator new(size); }

    void do_deallocate(void* memory, std::size_t size, std::size_t /*alignment*/) override {
        wipe({static_cast<std::uint8_t*>(memory), size});
        ::operator delete(memory);
    }

    bool do_is_equal(const memory_resource& other) const noexcept override { return this == &other; }
};

boost::json::object parsed(ByteView json) {
    if (json.size() > mostRecordBytes) {
        refuse();
    }
    boost::json::parse_options options;
    options.max_depth = deepestNesting;
    const auto memory = boost::json::make_shared_resource<WipingResource>();
    boost::json::parser parser(memory, options);
    parser.reset(memory);
    boost::json::error_code error;
    parser.write(reinterpret_cast<const char*>(json.data()), json.size(), error);
    if (error) {
        refuse();
    }
    boost::json::value value = parser.release();
    if (!value.is_object()) {
        refuse();
    }
    return std::move(value.get_object());
}

void appendEscaped(std::string& json, char c) {
    switch (c) {
    case '"':
        json += "\\\"";
        return;
    case '\\':
        json += "\\\\";
        return;
    case '\n':
        json += "\\n";
        return;
    case '\r':
        json += "\\r";
        return;
    case '\t':
        json += "\\t";
        return;
    case '\b':
        json += "\\b";
        return;
    case '\f':
        json += "\\f";
        return;
    default:
        break;
    }
    if (static_cast<unsigned char>(c) >= 0x20) {
        json += c;
        return;
    }
    std::array<char, 7> escape{};
    std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(c));
    json += escape.data();
}

} // namespace

void appendQuoted(std::string& json, std::string_view text) {
    requireUTF8(text);
    json += '"';
    for (const char c : text) {
        appendEscaped(json, c);
    }
    json += '"';
}

JsonRecord::JsonRecord(ByteView json) : object_(parsed(json)) {}

bool JsonRecord::has(std::string_view key) const {
    return object_.contains(key);
}

std::int64_t JsonRecord::integer(std::string_view key) const {
    const boost::json::value& value = member(key);
    if (!value.is_int64()) {
        refuse();
    }
    return value.get_int64();
}

std::string JsonRecord::text(std::string_view key) const {
    return std::string(textView(key));
}

SecretBytes JsonRecord::secretText(std::string_view key) const {
    return SecretBytes::copyOf(textView(key));
}

std::optional<std::string> JsonRecord::optionalText(std::string_view key) const {
    const boost::json::value* value = object_.if_contains(key);
    if (value == nullptr || value->is_null()) {
        return std::nullopt;
    }
    return text(key);
}

const boost::json::value& JsonRecord::member(std::string_view key) const {
    const boost::json::value* value = object_.if_contains(key);
    if (value == nullptr) {
        refuse();
    }
    return *value;
}

std::string_view JsonRecord::textView(std::string_view key) const {
    const boost::json::value& value = member(key);
    if (!value.is_string()) {
        refuse();
    }
    return value.get_string();
}

} // namespace KRCrypto::Internal
