#pragma once

#include "KorvaneCore/api/APIError.hpp"
#include "KorvaneCore/json/JSONValue.hpp"

#include <exception>
#include <map>
#include <optional>
#include <string>

namespace Korvane {

/// Everything an answer other than 2xx said. what() is the sentence users are shown.
class APIErrorInfo : public std::exception {
public:
    using Details = std::map<std::string, JSONValue>;

    APIErrorInfo(APIError mapped, int httpStatus, std::string machineCode, std::optional<std::string> message,
                 std::optional<Details> furtherDetails);

    APIError error;
    int status = 0;
    std::string code; ///< the server's, empty when it sent none
    std::optional<std::string> serverMessage;
    std::optional<Details> details;

    /// The text under "reason" in the details.
    [[nodiscard]] std::optional<std::string> reason() const;

    /// The server's sentence where it knows better than the client, else the case's own.
    [[nodiscard]] const std::string& errorDescription() const noexcept { return description_; }

    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

private:
    std::string description_;
};

/// The service's error in any exception: itself, or the one an APIErrorInfo holds; else nullptr. Lives as
/// long as the exception.
[[nodiscard]] const APIError* apiError(const std::exception& error) noexcept;

} // namespace Korvane
