#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// What concerns whole processes.
namespace Korvane::Process {

/// Runs a program to its end, without this process's open files, its input and output at /dev/null, its
/// signals as at first. Blocks. Returns its exit code, or 128 and the number of the signal that ended it.
/// Throws FileError when it cannot be started.
int run(const std::filesystem::path& program, const std::vector<std::string>& arguments);

/// Goes on in a process of its own that outlives whoever started this one; this one ends with exit code 0.
/// Only while there is no second thread. Throws FileError.
void detach();

/// This process's number.
[[nodiscard]] int identifier() noexcept;

/// The name of the program that a process runs, cut to 15 bytes by the kernel; "?" when there is no such
/// process.
[[nodiscard]] std::string name(int process);

/// From now on a write to a closed connection, or past a limit of size, fails instead of ending the process.
void surviveFailedWrites() noexcept;

} // namespace Korvane::Process
