#include "KorvaneCore/http/HTTPDate.hpp"

#include <curl/curl.h>

namespace Korvane::HTTPDate {

std::optional<std::chrono::system_clock::time_point> read(const std::string& text) {
    const auto seconds = curl_getdate(text.c_str(), nullptr);
    if (seconds < 0)
        return std::nullopt;
    return std::chrono::system_clock::from_time_t(seconds);
}

} // namespace Korvane::HTTPDate
