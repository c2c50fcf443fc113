#pragma once

#include "KorvaneCore/widget/WidgetSnapshot.hpp"
#include "KorvaneMacWidget/Widget.hpp"

#include <string_view>

namespace Korvane::PinnedFilesWidget {

[[nodiscard]] WidgetConfiguration configuration();

/// The first pins, 3 in the small and medium families and 8 in others, or a message that says why there are
/// none.
[[nodiscard]] WidgetContent content(const SnapshotEntry& entry, WidgetFamily family);

/// The symbol of a row, by kind and MIME type, which is compared exactly.
[[nodiscard]] std::string_view symbol(const WidgetSnapshot::Pin& pin);

} // namespace Korvane::PinnedFilesWidget
