#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

/// Passwords and codes from people and from other programs; never from arguments, which every user of the
/// computer can see. What they return is the caller's to wipe.
namespace Korvane::SecretInput {

/// There is no terminal to ask on, the input ended, or it was given up with Ctrl-C.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Asks on the controlling terminal and reads a line without echo. Throws Error.
[[nodiscard]] std::string ask(std::string_view prompt);

/// Whether the file descriptor is open for reading.
[[nodiscard]] bool canRead(int fd) noexcept;

/// The next line of an open file descriptor, at most 4096 bytes, without its end. Reads no further, so that
/// several secrets can follow each other. Throws Error.
[[nodiscard]] std::string readLine(int fd);

} // namespace Korvane::SecretInput
