#pragma once

#include <exception>

/// What every command of `korvane` exits with.
namespace Korvane::ExitCode {

inline constexpr int done = 0;
inline constexpr int failed = 1;
inline constexpr int usage = 2;
inline constexpr int signInNeeded = 3; ///< trying again is of no use before someone has signed in

/// The code of a command that ends with the error.
[[nodiscard]] int of(const std::exception& error) noexcept;

} // namespace Korvane::ExitCode
