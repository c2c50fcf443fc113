#pragma once

#include <stdexcept>

namespace Korvane {

/// A call that cannot be meant, found after the parsing; nothing was done.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace Korvane
