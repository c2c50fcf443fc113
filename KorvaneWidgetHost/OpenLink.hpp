#pragma once

#include <string>

namespace Korvane {

/// Hands the URL to the desktop's program for it (xdg-open) and does not wait. A failure to start is logged.
void openLink(const std::string& url);

} // namespace Korvane
