#pragma once

#include <string_view>

/// What a service manager that started this process wants to know of it: systemd's notification protocol,
/// datagrams to the socket that NOTIFY_SOCKET names. Without such a socket nothing happens; what cannot be
/// told is logged. Callable from any thread.
namespace Korvane::ServiceManager {

/// The process does from now on what it is for. `status` is one line for people.
void ready(std::string_view status);

void status(std::string_view text);

/// The process is about to end in good order.
void stopping();

} // namespace Korvane::ServiceManager
