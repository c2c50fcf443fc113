#include "tests/KRCrypto/Vectors.hpp"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace KRCrypto::Tests {

namespace {

void requireContent(const Value& value, std::string_view name) {
    if (value.is_array() ? value.get_array().empty() : value.as_object().empty()) {
        throw std::runtime_error("no vectors in " + std::string(name));
    }
}

std::string textOf(const Value& value) {
    if (value.is_object()) {
        return std::string(asText(bytes(value, "hex")));
    }
    if (!value.is_array()) {
        return std::string(value.as_string());
    }
    std::string all;
    for (const Value& piece : value.get_array()) {
        const bool repeats = piece.is_array();
        const std::string once(repeats ? piece.at(0).as_string() : piece.as_string());
        for (std::int64_t times = repeats ? piece.at(1).as_int64() : 1; times > 0; --times) {
            all += once;
        }
    }
    return all;
}

} // namespace

Value vectors(std::string_view name) {
    const std::string path = std::string(KRCRYPTO_VECTORS).append("/").append(name).append(".json");
    std::ifstream file(path, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    Value value = boost::json::parse(content);
    requireContent(value, name);
    return value;
}

boost::json::array rows(std::string_view name, std::string_view member) {
    const Value value = vectors(name);
    const Value& found = member.empty() ? value : value.at(member);
    requireContent(found, name);
    return found.as_array();
}

std::string text(const Value& record, std::string_view key) {
    return textOf(record.at(key));
}

Argon2Params paramsOf(const Value& record) {
    return {number(record, "memoryKib"), number(record, "iterations"), number(record, "parallelism"),
            number(record, "outputLength")};
}

MasterKey goldenKey() {
    return MasterKey::fromBytes(bytes(vectors("golden/account"), "masterKey"));
}

} // namespace KRCrypto::Tests
