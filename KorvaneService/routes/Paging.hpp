#pragma once

#include "KorvaneService/Exchange.hpp"

#include <algorithm>
#include <charconv>

namespace Korvane {

/// A whole number of the query, or `fallback` when it is not there. Throws Refusal for anything else.
[[nodiscard]] inline std::int64_t numberOf(const Exchange& exchange, const std::string& name,
                                           std::int64_t fallback) {
    const auto text = exchange.query(name);
    if (!text)
        return fallback;
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
    if (error != std::errc() || end != text->data() + text->size() || number < 0)
        throw Refusal::badRequest("\"" + name + "\" is no whole number");
    return number;
}

/// How many items a page holds: what the query asks for, within reason.
[[nodiscard]] inline std::int64_t limitOf(const Exchange& exchange) {
    static constexpr std::int64_t usual = 500;
    static constexpr std::int64_t most = 5000;
    return std::clamp<std::int64_t>(numberOf(exchange, "limit", usual), 1, most);
}

} // namespace Korvane
