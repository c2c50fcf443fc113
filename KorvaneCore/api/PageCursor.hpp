#pragma once

#include "KorvaneCore/api/APIError.hpp"

#include <optional>
#include <set>
#include <string>
#include <utility>

namespace Korvane {

/// Where a listing goes on, page by page.
class PageCursor {
public:
    /// None for the first page.
    [[nodiscard]] const std::optional<std::string>& value() const noexcept { return value_; }

    /// To the page that follows; false after the last one. Throws APIError::Decoding, naming the record, when
    /// the pages lead in a circle.
    bool advance(std::optional<std::string> next, const char* record) {
        value_ = std::move(next);
        if (value_ && !seen_.insert(*value_).second)
            throw APIError(APIError::Decoding{std::string(record) + ": nextCursor: leads in a circle"});
        return value_.has_value();
    }

private:
    std::optional<std::string> value_;
    std::set<std::string> seen_;
};

} // namespace Korvane
