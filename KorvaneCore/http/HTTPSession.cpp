#include "KorvaneCore/http/HTTPSession.hpp"

#include <boost/algorithm/string/predicate.hpp>

#include <locale>

namespace Korvane {

std::optional<std::string_view> HTTPResponse::header(std::string_view name) const {
    for (const auto& [known, value] : headers)
        if (boost::algorithm::iequals(known, name, std::locale::classic()))
            return value;
    return std::nullopt;
}

} // namespace Korvane
