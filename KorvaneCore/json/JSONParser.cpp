#include "KorvaneCore/json/JSONParser.hpp"

#include "KorvaneCore/json/JSONError.hpp"

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/value_stack.hpp>

#include <charconv>
#include <limits>
#include <string>
#include <utility>

namespace Korvane {

namespace json = boost::json;

namespace {

constexpr std::size_t deepest = 32;

/// Builds the value as Boost.JSON's own handler does, but for numbers that are no integers. Named as
/// json::basic_parser asks.
// NOLINTBEGIN(readability-identifier-naming)
struct Handler {
    using Code = boost::json::error_code;

    static constexpr std::size_t max_object_size = std::numeric_limits<std::size_t>::max();
    static constexpr std::size_t max_array_size = std::numeric_limits<std::size_t>::max();
    static constexpr std::size_t max_key_size = std::numeric_limits<std::size_t>::max();
    static constexpr std::size_t max_string_size = std::numeric_limits<std::size_t>::max();

    explicit Handler(json::storage_ptr storage) { values.reset(std::move(storage)); }

    bool on_document_begin(Code&) { return true; }

    bool on_document_end(Code&) { return true; }

    bool on_object_begin(Code&) { return true; }

    bool on_object_end(std::size_t size, Code&) { return values.push_object(size), true; }

    bool on_array_begin(Code&) { return true; }

    bool on_array_end(std::size_t size, Code&) { return values.push_array(size), true; }

    bool on_key_part(json::string_view text, std::size_t, Code&) { return values.push_chars(text), true; }

    bool on_key(json::string_view text, std::size_t, Code&) { return values.push_key(text), true; }

    bool on_string_part(json::string_view text, std::size_t, Code&) { return values.push_chars(text), true; }

    bool on_string(json::string_view text, std::size_t, Code&) { return values.push_string(text), true; }

    bool on_number_part(json::string_view text, Code&) {
        return number.append(text.data(), text.size()), true;
    }

    bool on_int64(std::int64_t value, json::string_view, Code&) {
        number.clear();
        return values.push_int64(value), true;
    }

    bool on_uint64(std::uint64_t value, json::string_view, Code&) {
        number.clear();
        return values.push_uint64(value), true;
    }

    // Out of range, the parser's own result stands: an infinity or zero.
    bool on_double(double value, json::string_view text, Code&) {
        number.append(text.data(), text.size());
        std::from_chars(number.data(), number.data() + number.size(), value);
        number.clear();
        return values.push_double(value), true;
    }

    bool on_bool(bool value, Code&) { return values.push_bool(value), true; }

    bool on_null(Code&) { return values.push_null(), true; }

    bool on_comment_part(json::string_view, Code&) { return true; }

    bool on_comment(json::string_view, Code&) { return true; }

    json::value_stack values;
    std::string number; ///< its text so far
};

// NOLINTEND(readability-identifier-naming)

} // namespace

json::value parseJSON(std::string_view text, json::storage_ptr storage) {
    json::parse_options options;
    options.max_depth = deepest;
    json::basic_parser<Handler> parser(options, std::move(storage));
    Handler::Code error;
    const auto read = parser.write_some(false, text.data(), text.size(), error);
    if (!error && read < text.size())
        error = json::error::extra_data;
    if (error)
        throw JSONError("not JSON: " + error.message());
    return parser.handler().values.release();
}

} // namespace Korvane
