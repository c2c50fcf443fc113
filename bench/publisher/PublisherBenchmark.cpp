// A publication from the local index at 2,000, 100,000 and 1,000,000 items, three of eight files pictures.
// Names read what is on this device/items: no picture; one of this day, published already; or every picture,
// as the index has it, but on the disk none is left.
#include "KorvaneCore/publisher/WidgetPublisher.hpp"
#include "KorvaneCore/sync/SyncRoots.hpp"
#include "KorvaneCore/widget/WidgetStore.hpp"
#include "bench/storage/IndexTree.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <array>
#include <stdexcept>

namespace {

using namespace Korvane;
using namespace std::chrono_literals;
namespace fs = std::filesystem;
namespace IndexTree = Bench::IndexTree;

enum class Here { nothing, one, gone };

constexpr std::array<const char*, 3> names{"nothingHere", "publishedAlready", "everythingGone"};

bool isPicture(const IndexItem& item) {
    return !item.isFolder &&
           (item.name.ends_with("jpg") || item.name.ends_with("png") || item.name.ends_with("heic"));
}

/// The anniversary, a year after the tree's dates end, of the day of the item.
WidgetPublisher::Time anniversary(const IndexItem& item) {
    const auto day = std::chrono::floor<std::chrono::days>(*item.mtime);
    const std::chrono::year_month_day date = day;
    return std::chrono::sys_days(std::chrono::year(2025) / date.month() / date.day()) + 12h;
}

class Account {
public:
    Account(std::int64_t count, Here here) {
        SyncRoots::add(*index_, {"root", folder_.path(), IndexTree::id(0)});
        std::vector<IndexItem> page;
        std::optional<IndexItem> shown;
        for (std::int64_t number = 0; number < count; ++number) {
            auto item = IndexTree::item(number);
            if (isPicture(item)) {
                item.mime = "image/jpeg";
                shown = item;
            }
            page.push_back(std::move(item));
            if (page.size() == 10'000 || number + 1 == count)
                write(std::exchange(page, {}), here);
        }
        for (int pin = 0; pin < 8; ++pin)
            index_->setPinned(IndexTree::id(IndexTree::archiveFolder - 1 - pin), true);
        now = anniversary(shown.value());
        if (here == Here::one)
            place(*shown);
    }

    WidgetPublisher publisher() { return {index_, folder_ / "Offline"}; }

    WidgetPublisher::Time now;

private:
    void write(const std::vector<IndexItem>& page, Here here) {
        index_->upsert(page);
        if (here != Here::gone)
            return;
        SQLiteDatabase(index_->url()).transaction([&](SQLiteDatabase& database) {
            for (const auto& item : page)
                if (item.mime == "image/jpeg")
                    database.run("INSERT INTO sync_base(root_id,rel_path,item_id,is_folder,version) "
                                 "VALUES('root',?,?,0,1)",
                                 item.id, item.id);
        });
    }

    void place(const IndexItem& item) {
        const auto file = folder_ / item.id;
        fs::copy_file(KORVANE_SOURCE_DIR "/examples/lake.jpg", file);
        const auto stat = localStat(file).value();
        index_->setBase("root", {item.id, item.id, false, 1, stat.size, stat.mtime, stat.inode, {}});
    }

    Testing::TemporaryContainer container_;
    Testing::TemporaryFolder folder_;
    std::shared_ptr<LocalIndex> index_ = std::make_shared<LocalIndex>(folder_ / "index.sqlite");
};

void publish(benchmark::State& state, std::int64_t count, Here here) {
    const Testing::ScopedEnvironment zone("TZ", "UTC");
    Account account(count, here);
    auto publisher = account.publisher();
    const auto first = publisher.publish(account.now);
    if (first.snapshot.pins.size() != 8 || first.snapshot.onThisDay.has_value() != (here == Here::one))
        throw std::runtime_error("another publication than meant");
    for (auto _ : state)
        if (publisher.publish(account.now).isNew)
            throw std::runtime_error("published twice");
}

} // namespace

int main(int argc, char** argv) {
    for (const auto here : {Here::nothing, Here::one, Here::gone})
        for (const std::int64_t count : {std::int64_t{2'000}, std::int64_t{100'000}, std::int64_t{1'000'000}})
            benchmark::RegisterBenchmark(
                fmt::format("{}/{}", names.at(static_cast<std::size_t>(here)), count).c_str(),
                [count, here](benchmark::State& state) { publish(state, count, here); })
                ->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
