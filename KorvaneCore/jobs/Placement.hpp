#pragma once

#include "KorvaneCore/platform/PartialFile.hpp"
#include "KorvaneCore/queue/LocalStat.hpp"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace Korvane {

/// Puts a finished file in its place. What must be kept there moves aside first, to the first free numbered
/// name beside it. Nothing is replaced that was not looked at: what comes between the look and the change of
/// places is found afterwards and moves aside as well, where the file system can exchange two files.
///
/// Blocking; one thread.
class Placement {
public:
    /// Whether what lies at the path, and looks like this, must not be lost.
    using MustBeKept = std::function<bool(const std::filesystem::path& path, const LocalStat& present)>;

    /// All outlive it. Without `mustBeKept` nothing is.
    Placement(const PartialFile& file, const std::filesystem::path& destination, MustBeKept mustBeKept);

    /// Gives where what was in the way went. Throws TransferQueue::PermanentFailure ("could not move file
    /// into place …"), and FileError when the system does not tell what is there.
    std::optional<std::filesystem::path> carryOut();

    /// What is said of an error number.
    [[nodiscard]] static std::string failure(int number);

private:
    bool takeOver(const LocalStat& present);
    [[nodiscard]] bool isToBeKept(const LocalStat& present) const;
    void keepReplaced();
    void moveAside(const std::filesystem::path& path);

    const PartialFile& file_;
    const std::filesystem::path& destination_;
    MustBeKept mustBeKept_;
    std::optional<std::filesystem::path> movedAside_;
};

} // namespace Korvane
