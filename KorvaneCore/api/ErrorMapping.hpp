#pragma once

#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/http/HTTPError.hpp"
#include "KorvaneCore/http/HTTPSession.hpp"

#include <optional>
#include <string>

/// From answers and failed requests to errors: one table, without I/O.
namespace Korvane::ErrorMapping {

/// The first rule that matches, the server's code before the HTTP status.
[[nodiscard]] APIError map(int status, const std::string& code, const std::optional<std::string>& message,
                           const std::optional<APIErrorInfo::Details>& details,
                           const std::optional<std::string>& retryAfter);

/// Reads an answer other than 2xx. Whatever its body is, there is an error to report: what does not read as
/// an error envelope counts as absent.
[[nodiscard]] APIErrorInfo errorInfo(const HTTPResponse& answer);

/// A request that got no usable answer; `record` is what the answer would have been, or empty.
[[nodiscard]] APIError sessionError(const HTTPError& error, const std::string& record);

/// A 401 that is about the access token itself, not about a proof the request carries.
[[nodiscard]] bool isTokenProblem(const APIErrorInfo& info);

} // namespace Korvane::ErrorMapping
