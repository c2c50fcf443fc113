#pragma once

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>

#include <string>
#include <vector>

namespace Korvane {

enum class FindingLevel {
    ok,
    warning, ///< works, but a person should know
    problem, ///< something does not work, or is not safe
};
BOOST_DESCRIBE_ENUM(FindingLevel, ok, warning, problem)

/// What one check found.
struct Finding {
    std::string check; ///< what was looked at, in a word or two
    FindingLevel level = FindingLevel::ok;
    std::string text;   ///< what was found
    std::string advice; ///< what to do about it; empty when nothing need be done
};
BOOST_DESCRIBE_STRUCT(Finding, (), (check, level, text, advice))

using Findings = std::vector<Finding>;

} // namespace Korvane
