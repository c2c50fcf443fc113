#include "KorvaneCommand/LocalSnapshot.hpp"

#include "KorvaneCore/media/MediaType.hpp"
#include "KorvaneCore/media/Thumbnail.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/LocalCalendar.hpp"

#include <boost/uuid/name_generator_sha1.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <unicode/unistr.h>

#include <algorithm>

namespace Korvane {

namespace fs = std::filesystem;

namespace {

fs::path existing(const fs::path& path) {
    std::error_code error;
    auto canonical = fs::canonical(path, error);
    if (error)
        throw FileError("find", path, error);
    return canonical;
}

std::string identifier(const fs::path& path) {
    const boost::uuids::name_generator_sha1 generator(boost::uuids::ns::url());
    return boost::uuids::to_string(generator("file://" + path.string()));
}

/// The last component as UTF-8: file names may hold any bytes, and those that are no text become U+FFFD.
std::string displayName(const fs::path& path) {
    const auto name = path.has_filename() ? path.filename().string() : path.string();
    std::string valid;
    icu::UnicodeString::fromUTF8(name).toUTF8String(valid);
    return valid;
}

WidgetSnapshot::Pin makePin(const fs::path& source) {
    const auto path = existing(source);
    if (fs::is_directory(path))
        return {identifier(path), true, displayName(path), std::nullopt};
    return {identifier(path), false, displayName(path), mediaType(path)};
}

int yearsSinceModified(const fs::path& path, LocalCalendar::Time now) {
    const auto modified = modificationDate(path);
    return modified ? std::max(1, LocalCalendar::wholeYears(*modified, now)) : 1;
}

} // namespace

LocalSnapshot composeLocalSnapshot(const LocalSnapshotSources& sources, LocalCalendar::Time now) {
    LocalSnapshot composed;
    for (const auto& source : sources.pins)
        composed.snapshot.pins.push_back(makePin(source));
    if (!sources.photo)
        return composed;

    const auto path = existing(*sources.photo);
    const auto id = identifier(path);
    const int years = sources.yearsAgo ? *sources.yearsAgo : yearsSinceModified(path, now);
    try {
        composed.thumbnail = makeThumbnail(path);
    } catch (const ThumbnailError& error) {
        throw ThumbnailError(path.string() + ": " + error.what());
    }
    composed.snapshot.onThisDay = WidgetSnapshot::Photo{id, displayName(path), years,
                                                        WidgetSnapshot::dayKey(now), "photo-" + id + ".jpg"};
    return composed;
}

} // namespace Korvane
