#pragma once

#include "KorvaneCore/platform/FileDescriptor.hpp"

#include <filesystem>

/// Stream sockets in the file system, for processes of one user. The folder must exist; a path of any length
/// will do. What fails throws FileError.
namespace Korvane::LocalSocket {

/// Listens at `file`, open to its owner only (0600). A file left there by another listener is replaced, so
/// whoever calls this must know that no other one is alive.
[[nodiscard]] FileDescriptor listen(const std::filesystem::path& file);

[[nodiscard]] FileDescriptor connect(const std::filesystem::path& file);

/// Whether the process at the other end of a connection runs as this user.
[[nodiscard]] bool isOwnUser(int socket) noexcept;

} // namespace Korvane::LocalSocket
