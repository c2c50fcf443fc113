#include "KorvaneCore/storage/IndexSchema.hpp"

#include <array>

namespace Korvane::IndexSchema {

namespace {

/// What leads to version 1, 2, …. Every statement may meet what it makes, and none drops data, so a step can
/// always be repeated.
constexpr std::array<const char*, currentVersion> steps{
    R"(
CREATE TABLE IF NOT EXISTS items (
  id TEXT PRIMARY KEY, is_folder INTEGER NOT NULL, parent_id TEXT, name TEXT NOT NULL, name_lower TEXT NOT NULL,
  mime TEXT, size INTEGER NOT NULL DEFAULT 0, sha256 TEXT, mtime REAL, blob_id TEXT,
  encrypted_size INTEGER NOT NULL DEFAULT 0, chunk_count INTEGER NOT NULL DEFAULT 0, wrapped_file_key BLOB,
  version INTEGER NOT NULL DEFAULT 0, has_thumbnail INTEGER NOT NULL DEFAULT 0, meta_enc BLOB NOT NULL,
  name_blind_index TEXT, created_at REAL, updated_at REAL, deleted_at REAL, created_by_device TEXT,
  seq INTEGER NOT NULL DEFAULT 0);
CREATE INDEX IF NOT EXISTS items_parent ON items(parent_id, deleted_at);
CREATE INDEX IF NOT EXISTS items_name ON items(name_lower);
CREATE TABLE IF NOT EXISTS kv (key TEXT PRIMARY KEY, value TEXT);
CREATE TABLE IF NOT EXISTS transfers (
  id TEXT PRIMARY KEY, kind INTEGER NOT NULL, state INTEGER NOT NULL, payload BLOB NOT NULL,
  attempts INTEGER NOT NULL DEFAULT 0, next_attempt REAL NOT NULL, last_error TEXT,
  progress INTEGER NOT NULL DEFAULT 0, total INTEGER NOT NULL DEFAULT 0, created_at REAL NOT NULL,
  title TEXT NOT NULL DEFAULT '', dedupe_key TEXT);
CREATE INDEX IF NOT EXISTS transfers_state ON transfers(state, next_attempt);
CREATE UNIQUE INDEX IF NOT EXISTS transfers_dedupe ON transfers(dedupe_key)
  WHERE dedupe_key IS NOT NULL AND state IN (0,1,4);
CREATE TABLE IF NOT EXISTS sync_base (
  root_id TEXT NOT NULL, rel_path TEXT NOT NULL, item_id TEXT NOT NULL, is_folder INTEGER NOT NULL,
  version INTEGER NOT NULL DEFAULT 0, local_size INTEGER NOT NULL DEFAULT 0, local_mtime REAL NOT NULL DEFAULT 0,
  inode INTEGER NOT NULL DEFAULT 0, sha256 TEXT, PRIMARY KEY(root_id, rel_path));
CREATE INDEX IF NOT EXISTS sync_base_item ON sync_base(item_id);
CREATE TABLE IF NOT EXISTS pinned (item_id TEXT PRIMARY KEY, local_version INTEGER NOT NULL DEFAULT 0, local_path TEXT);
CREATE TABLE IF NOT EXISTS camera_assets (local_id TEXT PRIMARY KEY, file_id TEXT, uploaded_at REAL NOT NULL);
CREATE TABLE IF NOT EXISTS share_keys (share_id TEXT PRIMARY KEY, entity_id TEXT NOT NULL, sealed BLOB NOT NULL);
CREATE TABLE IF NOT EXISTS activity (
  id INTEGER PRIMARY KEY AUTOINCREMENT, at REAL NOT NULL, kind TEXT NOT NULL, title TEXT NOT NULL, detail TEXT,
  is_error INTEGER NOT NULL DEFAULT 0);
)",
    R"(
CREATE TABLE IF NOT EXISTS item_journal (
  id INTEGER PRIMARY KEY AUTOINCREMENT, seq INTEGER NOT NULL, item_id TEXT NOT NULL, old_parent_id TEXT,
  kind INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS item_journal_seq ON item_journal(seq);
)",
    // For queries whose answer stays small while the tables grow (docs/figures.md). LIKE, which ignores case,
    // takes an index that does.
    R"(
CREATE INDEX IF NOT EXISTS items_child ON items(parent_id, name_lower);
CREATE INDEX IF NOT EXISTS items_listed ON items(is_folder DESC, name_lower)
  WHERE deleted_at IS NULL AND parent_id IS NOT NULL;
CREATE INDEX IF NOT EXISTS items_recent ON items(updated_at) WHERE deleted_at IS NULL AND is_folder=0;
CREATE INDEX IF NOT EXISTS items_seq ON items(seq);
CREATE INDEX IF NOT EXISTS items_blob ON items(blob_id) WHERE wrapped_file_key IS NOT NULL;
CREATE INDEX IF NOT EXISTS items_received ON items(blob_id COLLATE NOCASE)
  WHERE is_folder=0 AND deleted_at IS NULL;
CREATE INDEX IF NOT EXISTS transfers_key ON transfers(dedupe_key, state) WHERE dedupe_key IS NOT NULL;
CREATE INDEX IF NOT EXISTS transfers_waiting ON transfers(created_at, next_attempt) WHERE state=0;
)",
    // For pictures by date.
    R"(
CREATE INDEX IF NOT EXISTS items_pictures ON items(COALESCE(mtime, created_at), id)
  WHERE is_folder=0 AND deleted_at IS NULL AND mime>='image/' AND mime<'image0';
)"};

} // namespace

void migrate(SQLiteDatabase& database) {
    for (std::int32_t version = 1; version <= currentVersion; ++version) {
        // Asked first without the write lock: most opens find everything done.
        if (database.userVersion() >= version)
            continue;
        database.transaction([&](SQLiteDatabase& open) {
            if (open.userVersion() >= version)
                return; // another process has been here meanwhile
            open.execute(steps.at(static_cast<std::size_t>(version - 1)));
            open.setUserVersion(version);
        });
    }
}

} // namespace Korvane::IndexSchema
