#pragma once

#include "KorvaneCore/widgetkit/WidgetTimeline.hpp"

#include <stdexcept>
#include <string>

namespace Korvane {

/// The extension could not be started, refused the request or printed no timeline.
class WidgetExtensionError : public std::runtime_error {
public:
    WidgetExtensionError(const std::string& message, int exitCode)
        : std::runtime_error(message), exitCode_(exitCode) {}

    /// What the host should exit with: 2 where the extension knows no such kind or family, else 1.
    [[nodiscard]] int exitCode() const noexcept { return exitCode_; }

private:
    int exitCode_;
};

/// The widget extension as a program: started for each request, it prints its answer and ends.
namespace WidgetExtension {

/// Asks for the timeline of a widget and waits for it. Throws WidgetExtensionError. The program is the one
/// that KORVANE_WIDGET_EXTENSION names, else "korvane-widget" beside this one.
[[nodiscard]] WidgetTimeline timeline(const std::string& kind, const std::string& family);

} // namespace WidgetExtension

} // namespace Korvane
