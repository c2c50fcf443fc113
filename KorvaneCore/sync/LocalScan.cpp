#include "KorvaneCore/sync/LocalScan.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/UnicodeText.hpp"
#include "KorvaneCore/platform/FileStatus.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/sync/EventFilter.hpp"

#include <algorithm>
#include <optional>

namespace Korvane {

namespace fs = std::filesystem;

namespace {

using Why = LocalScan::Why;

class Scanner {
public:
    Scanner(fs::path root, const fs::path& leftOut, Noise noise)
        : root_(std::move(root)),
          leftOut_(leftOut.empty() ? std::nullopt : fileStatus(fs::weakly_canonical(leftOut))),
          noise_(noise) {}

    LocalScan scan() {
        std::error_code error;
        list("", error);
        if (error)
            throw FileError("list", root_, error);
        // By path, so that a folder comes before what is in it.
        std::ranges::sort(scan_.entries, {}, &LocalScan::Entry::relPath);
        return std::move(scan_);
    }

private:
    void list(const std::string& folder, std::error_code& error) {
        for (fs::directory_iterator entry(root_ / folder, error), end; !error && entry != end;
             entry.increment(error)) {
            const auto name = entry->path().filename().string();
            if (!isPartialDownload(name))
                visit((fs::path(folder) / name).string());
        }
    }

    void visit(const std::string& relPath) {
        const auto path = root_ / relPath;
        if (!KRCrypto::isUTF8(relPath))
            return skip(relPath, Why::unsuitable, "its name is not UTF-8");
        if (noise_ == Noise::skipped && isNoise(relPath))
            return skip(relPath, Why::noise, "names like it belong to temporary files");
        try {
            add(relPath, path);
        } catch (const FileError& error) {
            scan_.isComplete = false;
            skip(relPath, Why::unreadable, "it cannot be looked at: " + error.code().message());
        }
    }

    void add(const std::string& relPath, const fs::path& path) {
        const auto status = fileStatus(path);
        if (!status)
            return; // gone meanwhile
        if (leftOut_ && status->inode == leftOut_->inode && status->device == leftOut_->device)
            return;
        if (status->kind == FileStatus::Kind::link)
            return skip(relPath, Why::unsuitable, "links are not followed");
        if (status->kind == FileStatus::Kind::other)
            return skip(relPath, Why::unsuitable, "it is neither a file nor a folder");
        const auto stat = localStat(path);
        if (!stat)
            return;
        scan_.entries.push_back({relPath, *stat, status->changed});
        if (!stat->isDirectory)
            return;
        std::error_code error;
        list(relPath, error);
        if (error) {
            scan_.isComplete = false;
            skip(relPath, Why::unreadable, "it cannot be listed: " + error.message());
        }
    }

    void skip(const std::string& relPath, Why why, std::string reason) {
        scan_.skipped.push_back({relPath, why, std::move(reason)});
    }

    fs::path root_;
    std::optional<FileStatus> leftOut_;
    Noise noise_;
    LocalScan scan_;
};

} // namespace

LocalScan scanFolder(const fs::path& root, const fs::path& leftOut, Noise noise) {
    return Scanner(root, leftOut, noise).scan();
}

} // namespace Korvane
