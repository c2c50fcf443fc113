#pragma once

#include "KorvaneCore/api/APIErrorInfo.hpp"

#include <boost/describe.hpp>

#include <optional>
#include <string>

namespace Korvane {

/// The service's error body.
struct ErrorEnvelope {
    struct Body {
        std::string code;
        std::optional<std::string> message;
        std::optional<APIErrorInfo::Details> details;

        BOOST_DESCRIBE_CLASS(Body, (), (code, message, details), (), ())
    };

    Body error;
};
BOOST_DESCRIBE_STRUCT(ErrorEnvelope, (), (error))

} // namespace Korvane
