#pragma once

#include <stdexcept>
#include <string>

namespace Korvane {

/// A request that got no usable answer. what() says why, without the URL.
class HTTPError : public std::runtime_error {
public:
    enum class Kind {
        connection,  ///< no connection, or one that broke or ended early
        timeout,     ///< nothing moved for too long, or the whole took too long
        certificate, ///< the server could not prove who it is
        notHTTP,     ///< something answered that does not speak HTTP
        tooLarge,    ///< the answer is larger than the request allows
        malformed,   ///< a request that cannot be sent: its URL or a header
    };

    HTTPError(Kind kind, const std::string& reason) : std::runtime_error(reason), kind_(kind) {}

    [[nodiscard]] Kind kind() const noexcept { return kind_; }

private:
    Kind kind_;
};

} // namespace Korvane
