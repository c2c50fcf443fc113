#pragma once

#include "KorvaneCore/storage/LocalIndex.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/VirtualClock.hpp"

#include <gmock/gmock.h>

#include <functional>

namespace Korvane::Testing {

/// A local index of the test's own, with a second connection to look at its tables.
struct IndexTest : testing::Test {
    TemporaryFolder folder;
    std::filesystem::path url = folder / "index.sqlite";
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    LocalIndex index{url, clock};
    SQLiteDatabase tables{url};
};

inline IndexItem folderItem(std::string id, std::optional<std::string> parent, std::int64_t seq = 1) {
    IndexItem item;
    item.name = id;
    item.id = std::move(id);
    item.isFolder = true;
    item.parentId = std::move(parent);
    item.seq = seq;
    return item;
}

inline IndexItem fileItem(std::string id, std::optional<std::string> parent, std::int64_t seq = 1) {
    auto item = folderItem(std::move(id), std::move(parent), seq);
    item.isFolder = false;
    item.size = 10;
    return item;
}

/// The names, or paths, in their order.
inline std::vector<std::string> namesOf(const std::vector<IndexItem>& items) {
    std::vector<std::string> names(items.size());
    std::ranges::transform(items, names.begin(), &IndexItem::name);
    return names;
}

/// All rows of all tables with content.
inline std::vector<std::map<std::string, SQLValue>> contentOf(SQLiteDatabase& database) {
    std::vector<std::map<std::string, SQLValue>> content;
    for (const auto& table :
         database.query("SELECT name FROM sqlite_master WHERE type='table' AND name NOT LIKE 'sqlite%'")) {
        for (const auto& row : database.query("SELECT rowid AS row, * FROM " + *table.string("name")))
            content.push_back(row.columns());
    }
    return content;
}

} // namespace Korvane::Testing
