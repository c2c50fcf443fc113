#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace Korvane {

/// Text that is no JSON, or JSON that is not the record asked for. what() names the record, the place in it
/// and both kinds: "WidgetSnapshot: pins[2].name: expected string, got number".
class JSONError : public std::exception {
public:
    explicit JSONError(std::string reason);

    /// The same error seen from one level further out: `step` is ".key" or "[index]".
    [[nodiscard]] JSONError within(std::string_view step) const;

    /// The same error of the record that was asked for.
    [[nodiscard]] JSONError of(std::string_view record) const;

    [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }

private:
    JSONError(std::string path, std::string reason);

    std::string path_;
    std::string reason_;
    std::string message_;
};

} // namespace Korvane
