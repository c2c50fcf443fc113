#include "KorvaneCore/platform/LocalCalendar.hpp"

#include "KorvaneCore/json/KRJSON.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace Korvane {
namespace {

LocalCalendar::Time at(const char* date) {
    return KRJSON::parseDate(date).value();
}

struct DayCase {
    const char* zone;
    const char* now;
    const char* nextStart;
    const char* day; // of now
};

TEST(LocalCalendar, TheNextDayStartsAtMidnightOrWhereTheGapEnds) {
    const DayCase cases[] = {
        {"UTC", "2026-11-21T10:45:00Z", "2026-11-22T00:00:00.000Z", "2026-11-21"},
        {"UTC", "2026-11-21T00:00:00Z", "2026-11-22T00:00:00.000Z", "2026-11-21"},
        {"UTC", "2026-11-20T23:59:59.999Z", "2026-11-21T00:00:00.000Z", "2026-11-20"},
        {"Europe/Berlin", "2026-03-28T23:30:00Z", "2026-03-29T22:00:00.000Z", "2026-03-29"}, // 23 hours
        {"Europe/Berlin", "2026-10-24T22:30:00Z", "2026-10-25T23:00:00.000Z", "2026-10-25"}, // 25 hours
        {"Asia/Kolkata", "2026-01-01T18:29:59Z", "2026-01-01T18:30:00.000Z",
         "2026-01-01"}, // half an hour off
        {"America/Sao_Paulo", "2018-11-03T15:00:00Z", "2018-11-04T03:00:00.000Z",
         "2018-11-03"},                                                                     // starts at 01:00
        {"Asia/Beirut", "2025-03-29T12:00:00Z", "2025-03-29T22:00:00.000Z", "2025-03-29"},  // starts at 01:00
        {"Africa/Cairo", "2026-04-23T12:00:00Z", "2026-04-23T22:00:00.000Z", "2026-04-23"}, // starts at 01:00
        {"America/Havana", "2025-11-01T12:00:00Z", "2025-11-02T04:00:00.000Z",
         "2025-11-01"}, // 00:00 comes twice
        {"America/Havana", "2025-11-02T04:30:00Z", "2025-11-03T05:00:00.000Z",
         "2025-11-02"}, // between the two
        {"Pacific/Apia", "2011-12-29T20:00:00Z", "2011-12-30T10:00:00.000Z",
         "2011-12-29"}, // the 30th is skipped
        {"America/St_Johns", "2010-11-07T02:00:00Z", "2010-11-07T02:30:00.000Z",
         "2010-11-06"}, // back over midnight
        {"America/St_Johns", "2010-11-07T02:20:07Z", "2010-11-07T02:30:00.000Z", "2010-11-06"},
        {"EST5EDT,M3.2.0,M11.1.0", "2026-03-08T12:00:00Z", "2026-03-09T04:00:00.000Z", "2026-03-08"},
        {":Europe/Berlin", "2045-07-01T12:00:00Z", "2045-07-01T22:00:00.000Z",
         "2045-07-01"}, // past the listed dates
    };
    for (const auto& test : cases) {
        const Testing::ScopedEnvironment zone("TZ", test.zone);
        const auto next = LocalCalendar::nextStartOfDay(at(test.now));
        ASSERT_TRUE(next) << test.zone;
        EXPECT_EQ(KRJSON::formatDate(*next), test.nextStart) << test.zone << " from " << test.now;
        EXPECT_EQ(LocalCalendar::dayKey(at(test.now)), test.day) << test.zone;
    }
}

TEST(LocalCalendar, YearsCountFromAnniversaryToAnniversary) {
    const Testing::ScopedEnvironment zone("TZ", "UTC");
    EXPECT_EQ(LocalCalendar::wholeYears(at("2023-11-21T23:00:00Z"), at("2026-11-21T01:00:00Z")), 3);
    EXPECT_EQ(LocalCalendar::wholeYears(at("2023-11-22T00:00:00Z"), at("2026-11-21T23:00:00Z")), 2);
    EXPECT_EQ(LocalCalendar::wholeYears(at("2026-01-01T00:00:00Z"), at("2026-12-31T00:00:00Z")), 0);
    EXPECT_EQ(LocalCalendar::wholeYears(at("2027-01-01T00:00:00Z"), at("2026-06-01T00:00:00Z")), 0);
}

} // namespace
} // namespace Korvane
