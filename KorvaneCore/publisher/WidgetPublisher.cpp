#include "KorvaneCore/publisher/WidgetPublisher.hpp"

#include "KRCrypto/Hex.hpp"
#include "KRCrypto/Sha256.hpp"
#include "KorvaneCore/media/Thumbnail.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/LocalCalendar.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/widget/WidgetStore.hpp"

#include <fmt/format.h>

#include <utility>

namespace Korvane {

namespace {

using namespace std::chrono_literals;
using LocalCalendar::Day;

constexpr std::int64_t pageSize = 100;

/// No clock on Earth has been further from UTC.
constexpr auto farthestZone = 16h;

/// A time that certainly lies before, and one that lies after, all of a day in the user's calendar.
struct Around {
    LocalIndex::Date from;
    LocalIndex::Date to;
};

/// None for a 29 February of a year without one.
std::optional<Around> around(const Day& day) {
    const std::chrono::year_month_day date(std::chrono::year(day.year),
                                           std::chrono::month(static_cast<unsigned>(day.month)),
                                           std::chrono::day(static_cast<unsigned>(day.day)));
    if (!date.ok())
        return std::nullopt;
    const std::chrono::sys_days midnight = date;
    return Around{midnight - farthestZone, midnight + 24h + farthestZone};
}

/// Another name for other bytes, so that no reader takes an old thumbnail for a new one.
std::string thumbnailFile(const IndexItem& item, const LocalCopies::Copy& copy) {
    const auto looks = fmt::format("{}\n{}\n{}", item.id, copy.stat.size, copy.stat.mtime);
    return "photo-" + KRCrypto::hexString(KRCrypto::sha256(KRCrypto::asBytes(looks))).substr(0, 32) + ".jpg";
}

bool isPublished(const WidgetSnapshot& wanted, const std::optional<WidgetSnapshot>& published) {
    if (published != wanted)
        return false;
    std::error_code error;
    return !wanted.onThisDay ||
           std::filesystem::is_regular_file(WidgetStore::thumbnailURL(*wanted.onThisDay), error);
}

} // namespace

WidgetPublisher::WidgetPublisher(std::shared_ptr<LocalIndex> index,
                                 const std::filesystem::path& offlineFolder)
    : index_(std::move(index)), copies_(index_, offlineFolder) {}

WidgetPublisher::Publication WidgetPublisher::publish(Time now) {
    const auto published = WidgetStore::load();
    auto wanted = WidgetSnapshot::hidden;
    std::optional<std::string> thumbnail;
    if (!WidgetStore::hideContent()) {
        wanted.contentHidden = false;
        wanted.pins = pins();
        if (auto photo = onThisDay(now, published)) {
            wanted.onThisDay = std::move(photo->shown);
            thumbnail = std::move(photo->thumbnail);
        }
    }
    if (isPublished(wanted, published))
        return {std::move(wanted), false};
    return {WidgetStore::save(wanted, thumbnail), true};
}

std::vector<WidgetSnapshot::Pin> WidgetPublisher::pins() {
    std::vector<WidgetSnapshot::Pin> pins;
    for (auto& item : index_->pinnedItems()) {
        if (pins.size() == WidgetStore::maxPins)
            break;
        if (index_->isLive(item.id))
            pins.push_back({item.id, item.isFolder, std::move(item.name),
                            item.isFolder ? std::nullopt : std::move(item.mime)});
    }
    return pins;
}

std::optional<WidgetPublisher::Photo>
WidgetPublisher::onThisDay(Time now, const std::optional<WidgetSnapshot>& published) {
    const auto earliest = index_->earliestPicture();
    if (!earliest)
        return std::nullopt;
    const auto today = LocalCalendar::day(now);
    const auto firstYear = LocalCalendar::day(*earliest).year;
    for (Day day = {today.year - 1, today.month, today.day}; day.year >= firstYear; --day.year)
        if (auto photo = photoOf(day, now, published))
            return photo;
    return std::nullopt;
}

std::optional<WidgetPublisher::Photo>
WidgetPublisher::photoOf(const Day& day, Time now, const std::optional<WidgetSnapshot>& published) {
    const auto range = around(day);
    for (std::int64_t offset = 0; range; offset += pageSize) {
        const auto page = index_->reconciledPictures(range->from, range->to, pageSize, offset);
        for (const auto& item : page) {
            const auto date = contentDate(item);
            if (!date || LocalCalendar::day(*date) != day || !index_->isLive(item.id))
                continue;
            const auto copy = copies_.of(item);
            if (!copy)
                continue;
            WidgetSnapshot::Photo photo{item.id, item.name, LocalCalendar::day(now).year - day.year,
                                        WidgetSnapshot::dayKey(now), thumbnailFile(item, *copy)};
            if (auto thumbnail = thumbnailOf(photo, *copy, published))
                return Photo{std::move(photo), *std::move(thumbnail)};
        }
        if (page.size() < static_cast<std::size_t>(pageSize))
            break;
    }
    return std::nullopt;
}

std::optional<std::string> WidgetPublisher::thumbnailOf(const WidgetSnapshot::Photo& photo,
                                                        const LocalCopies::Copy& copy,
                                                        const std::optional<WidgetSnapshot>& published) {
    if (notPictures_.contains(photo.thumbnailFile))
        return std::nullopt;
    try {
        if (published && published->onThisDay && published->onThisDay->thumbnailFile == photo.thumbnailFile)
            return readFile(WidgetStore::thumbnailURL(photo), WidgetStore::maxThumbnailSize);
    } catch (const FileError& error) {
        Log::info("widget", "the published thumbnail is made anew: " + error.code().message());
    }
    try {
        auto thumbnail = makeThumbnail(copy.path);
        return LocalCopies::isUntouched(copy) ? std::optional(std::move(thumbnail)) : std::nullopt;
    } catch (const ThumbnailError&) {
        Log::info("widget", "a picture of this day cannot be decoded and is passed over");
        notPictures_.insert(photo.thumbnailFile);
        return std::nullopt;
    }
}

} // namespace Korvane
