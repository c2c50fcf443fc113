#pragma once

#include "KorvaneCore/background/TransferMessages.hpp"

#include <exception>
#include <filesystem>

/// What a transfer threw in one process, thrown again in another.
namespace Korvane::TaskFailure {

[[nodiscard]] TransferMessages::Failure from(const std::exception& error);

/// An HTTPError or, for the staged file, a FileError.
[[nodiscard]] std::exception_ptr toException(const TransferMessages::Failure& failure,
                                             const std::filesystem::path& file);

} // namespace Korvane::TaskFailure
