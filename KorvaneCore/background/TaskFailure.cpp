#include "KorvaneCore/background/TaskFailure.hpp"

#include "KorvaneCore/http/HTTPError.hpp"
#include "KorvaneCore/platform/Files.hpp"

#include <array>
#include <cerrno>
#include <utility>

namespace Korvane::TaskFailure {

namespace {

using Kind = TransferMessages::Failure::Kind;

constexpr std::array<std::pair<HTTPError::Kind, Kind>, 6> kinds{{
    {HTTPError::Kind::connection, Kind::connection},
    {HTTPError::Kind::timeout, Kind::timeout},
    {HTTPError::Kind::certificate, Kind::certificate},
    {HTTPError::Kind::notHTTP, Kind::notHTTP},
    {HTTPError::Kind::tooLarge, Kind::tooLarge},
    {HTTPError::Kind::malformed, Kind::malformed},
}};

} // namespace

TransferMessages::Failure from(const std::exception& error) {
    if (const auto* failure = dynamic_cast<const FileError*>(&error))
        return {Kind::file, failure->code().message(), failure->code().value()}; // a path may be no UTF-8
    if (const auto* failure = dynamic_cast<const HTTPError*>(&error))
        for (const auto& [ours, theirs] : kinds)
            if (ours == failure->kind())
                return {theirs, failure->what(), std::nullopt};
    return {Kind::connection, error.what(), std::nullopt};
}

std::exception_ptr toException(const TransferMessages::Failure& failure, const std::filesystem::path& file) {
    if (failure.kind == Kind::file)
        return std::make_exception_ptr(
            FileError("transfer", file, {failure.code.value_or(EIO), std::generic_category()}));
    auto kind = HTTPError::Kind::connection;
    for (const auto& [ours, theirs] : kinds)
        if (theirs == failure.kind)
            kind = ours;
    return std::make_exception_ptr(HTTPError(kind, failure.message));
}

} // namespace Korvane::TaskFailure
