#include "KorvaneCore/json/JSONError.hpp"

namespace Korvane {

JSONError::JSONError(std::string reason) : reason_(std::move(reason)), message_(reason_) {}

JSONError JSONError::within(std::string_view step) const {
    JSONError outer(reason_);
    outer.path_ = std::string(step) + path_;
    outer.message_ = outer.path_ + ": " + reason_;
    return outer;
}

} // namespace Korvane
