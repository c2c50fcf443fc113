#pragma once

#include <string>

namespace Korvane {

/// The name a user knows this computer by: the pretty host name of /etc/machine-info, else the host name up
/// to its first full stop. Never empty.
[[nodiscard]] std::string computerName();

} // namespace Korvane
