#include "KorvaneCore/json/JSONError.hpp"

#include <utility>

namespace Korvane {

JSONError::JSONError(std::string reason) : JSONError("", std::move(reason)) {}

JSONError::JSONError(std::string path, std::string reason)
    : path_(std::move(path)), reason_(std::move(reason)) {
    if (!path_.empty())
        message_ = path_.substr(path_.front() == '.' ? 1 : 0) + ": ";
    message_ += reason_;
}

JSONError JSONError::within(std::string_view step) const {
    return {std::string(step) + path_, reason_};
}

JSONError JSONError::of(std::string_view record) const {
    JSONError whole(*this);
    whole.message_.insert(0, std::string(record) + ": ");
    return whole;
}

} // namespace Korvane
