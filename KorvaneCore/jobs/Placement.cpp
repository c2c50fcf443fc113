#include "KorvaneCore/jobs/Placement.hpp"

#include "KorvaneCore/jobs/FileNames.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"

#include <fmt/format.h>

#include <exception>
#include <system_error>
#include <utility>

namespace Korvane {

namespace {

void require(const std::error_code& error) {
    if (error)
        throw TransferQueue::PermanentFailure(Placement::failure(error.value()));
}

} // namespace

std::string Placement::failure(int number) {
    return fmt::format("could not move file into place (errno {})", number);
}

Placement::Placement(const PartialFile& file, const std::filesystem::path& destination, MustBeKept mustBeKept)
    : file_(file), destination_(destination), mustBeKept_(std::move(mustBeKept)) {}

std::optional<std::filesystem::path> Placement::carryOut() {
    for (;;) {
        const auto present = localStat(destination_);
        if (!present) {
            const auto error = file_.place(destination_);
            if (error == std::errc::file_exists)
                continue;
            require(error);
            return movedAside_;
        }
        if (const auto error = file_.takePermissions(destination_))
            Log::info("transfer", "a file gets other permissions than the one before: " + error.message());
        if (mustBeKept_ && mustBeKept_(destination_, *present))
            moveAside(destination_);
        else if (takeOver(*present))
            return movedAside_;
    }
}

// Gives false when nothing is there any more.
bool Placement::takeOver(const LocalStat& present) {
    const auto error = mustBeKept_ && !present.isDirectory
                           ? file_.exchange(destination_)
                           : std::make_error_code(std::errc::invalid_argument);
    if (error == std::errc::no_such_file_or_directory)
        return false;
    if (error == std::errc::invalid_argument) {
        require(file_.placeOver(destination_));
        return true;
    }
    require(error);
    if (isToBeKept(present)) {
        keepReplaced();
        return true;
    }
    std::error_code left;
    std::filesystem::remove(file_.path(), left);
    if (left)
        Log::warning("transfer", "a file that was replaced could not be removed: " + left.message());
    return true;
}

// What cannot be told is kept.
bool Placement::isToBeKept(const LocalStat& present) const {
    try {
        const auto replaced = localStat(file_.path());
        return replaced && replaced != present && mustBeKept_(file_.path(), *replaced);
    } catch (const std::exception&) {
        return true;
    }
}

// Under the temporary name nobody would find it.
void Placement::keepReplaced() {
    try {
        moveAside(file_.path());
    } catch (const TransferQueue::PermanentFailure&) {
        if (const auto error = file_.exchange(destination_))
            Log::error("transfer", "a replaced file stays under a temporary name: " + error.message());
        throw;
    }
}

void Placement::moveAside(const std::filesystem::path& path) {
    const auto name = destination_.filename().string();
    for (std::int64_t n = 1;; ++n) {
        const auto aside = destination_.parent_path() / FileNames::numbered(name, n);
        const auto error = renameToFreeName(path, aside);
        if (error == std::errc::file_exists)
            continue;
        if (error == std::errc::no_such_file_or_directory)
            return; // gone meanwhile
        require(error);
        movedAside_ = aside;
        return;
    }
}

} // namespace Korvane
