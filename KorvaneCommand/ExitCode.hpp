#pragma once

/// What every command of `korvane` exits with.
namespace Korvane::ExitCode {

inline constexpr int done = 0;
inline constexpr int failed = 1;
inline constexpr int usage = 2;

} // namespace Korvane::ExitCode
