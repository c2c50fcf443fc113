#include "tests/KRCrypto/Vectors.hpp"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace KRCrypto::Tests {

namespace {

void requireContent(const boost::json::value& value, std::string_view name) {
    if (value.is_array() ? value.get_array().empty() : value.as_object().empty()) {
        throw std::runtime_error("no vectors in " + std::string(name));
    }
}

} // namespace

boost::json::value vectors(std::string_view name) {
    const std::string path = std::string(KRCRYPTO_VECTORS).append("/").append(name).append(".json");
    std::ifstream file(path, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    boost::json::value value = boost::json::parse(content);
    requireContent(value, name);
    return value;
}

boost::json::array rows(std::string_view name, std::string_view member) {
    const boost::json::value value = vectors(name);
    const boost::json::value& found = member.empty() ? value : value.at(member);
    requireContent(found, name);
    return found.as_array();
}

} // namespace KRCrypto::Tests
