#include "KorvaneService/Schema.hpp"

namespace Korvane {

namespace {

constexpr const char* accounts = R"(
CREATE TABLE IF NOT EXISTS service_keys (name TEXT PRIMARY KEY, value BLOB NOT NULL);
CREATE TABLE IF NOT EXISTS users (
    id TEXT PRIMARY KEY,
    email TEXT NOT NULL UNIQUE,
    root_folder_id TEXT NOT NULL,
    quota_bytes INTEGER NOT NULL,
    created_at REAL NOT NULL,
    kdf_salt BLOB NOT NULL,
    auth_hash BLOB NOT NULL,
    recovery_hash BLOB NOT NULL,
    wrapped_master_key BLOB NOT NULL,
    wrapped_master_key_recovery BLOB NOT NULL,
    latest_seq INTEGER NOT NULL DEFAULT 0);
CREATE TABLE IF NOT EXISTS devices (
    id TEXT PRIMARY KEY,
    user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
    name TEXT NOT NULL,
    platform TEXT NOT NULL,
    push_token TEXT,
    created_at REAL NOT NULL,
    last_seen_at REAL NOT NULL,
    revoked_at REAL);
CREATE INDEX IF NOT EXISTS devices_user ON devices(user_id);
CREATE TABLE IF NOT EXISTS refresh_tokens (
    hash BLOB PRIMARY KEY,
    device_id TEXT NOT NULL REFERENCES devices(id) ON DELETE CASCADE,
    used_at REAL);
CREATE INDEX IF NOT EXISTS refresh_tokens_device ON refresh_tokens(device_id);
CREATE TABLE IF NOT EXISTS pairings (
    id TEXT PRIMARY KEY,
    code TEXT NOT NULL UNIQUE,
    poll_hash BLOB NOT NULL,
    user_id TEXT REFERENCES users(id) ON DELETE CASCADE,
    device_id TEXT REFERENCES devices(id) ON DELETE CASCADE,
    device_name TEXT NOT NULL,
    platform TEXT NOT NULL,
    device_public_key BLOB NOT NULL,
    created_at REAL NOT NULL,
    expires_at REAL NOT NULL,
    approver_public_key BLOB,
    encrypted_master_key BLOB,
    approved_by TEXT REFERENCES users(id) ON DELETE CASCADE,
    collected INTEGER NOT NULL DEFAULT 0);
)";

constexpr const char* entries = R"(
CREATE TABLE IF NOT EXISTS folders (
    id TEXT PRIMARY KEY,
    user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
    parent_id TEXT,
    meta_enc BLOB,
    name_blind_index TEXT,
    created_at REAL NOT NULL,
    updated_at REAL NOT NULL,
    deleted_at REAL,
    seq INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS folders_parent ON folders(parent_id, id);
CREATE INDEX IF NOT EXISTS folders_user_trash ON folders(user_id, id) WHERE deleted_at IS NOT NULL;
CREATE UNIQUE INDEX IF NOT EXISTS folders_name ON folders(parent_id, name_blind_index) WHERE deleted_at IS NULL;
CREATE TABLE IF NOT EXISTS files (
    id TEXT PRIMARY KEY,
    user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
    folder_id TEXT NOT NULL,
    meta_enc BLOB NOT NULL,
    name_blind_index TEXT NOT NULL,
    version INTEGER NOT NULL,
    has_thumbnail INTEGER NOT NULL DEFAULT 0,
    created_at REAL NOT NULL,
    updated_at REAL NOT NULL,
    deleted_at REAL,
    seq INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS files_folder ON files(folder_id, id);
CREATE INDEX IF NOT EXISTS files_user_trash ON files(user_id, id) WHERE deleted_at IS NOT NULL;
CREATE UNIQUE INDEX IF NOT EXISTS files_name ON files(folder_id, name_blind_index) WHERE deleted_at IS NULL;
CREATE TABLE IF NOT EXISTS blobs (
    user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
    blob_id TEXT NOT NULL,
    folder TEXT NOT NULL,
    encrypted_size INTEGER NOT NULL,
    chunk_count INTEGER NOT NULL,
    PRIMARY KEY (user_id, blob_id));
CREATE UNIQUE INDEX IF NOT EXISTS blobs_folder ON blobs(folder);
CREATE INDEX IF NOT EXISTS blobs_size ON blobs(user_id, encrypted_size);
CREATE TABLE IF NOT EXISTS versions (
    file_id TEXT NOT NULL REFERENCES files(id) ON DELETE CASCADE,
    version INTEGER NOT NULL,
    user_id TEXT NOT NULL,
    blob_id TEXT NOT NULL,
    wrapped_file_key BLOB NOT NULL,
    meta_enc BLOB NOT NULL,
    name_blind_index TEXT NOT NULL,
    created_at REAL NOT NULL,
    created_by_device_id TEXT,
    PRIMARY KEY (file_id, version),
    FOREIGN KEY (user_id, blob_id) REFERENCES blobs(user_id, blob_id));
CREATE INDEX IF NOT EXISTS versions_blob ON versions(user_id, blob_id);
CREATE TABLE IF NOT EXISTS uploads (
    id TEXT PRIMARY KEY,
    user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
    blob_id TEXT NOT NULL,
    encrypted_size INTEGER NOT NULL,
    chunk_count INTEGER NOT NULL,
    expires_at REAL NOT NULL,
    file_id TEXT);
CREATE INDEX IF NOT EXISTS uploads_expiry ON uploads(user_id, expires_at);
CREATE INDEX IF NOT EXISTS uploads_open ON uploads(user_id, encrypted_size) WHERE file_id IS NULL;
CREATE TABLE IF NOT EXISTS upload_parts (
    upload_id TEXT NOT NULL REFERENCES uploads(id) ON DELETE CASCADE,
    part_number INTEGER NOT NULL,
    PRIMARY KEY (upload_id, part_number));
)";

constexpr const char* others = R"(
CREATE TABLE IF NOT EXISTS changes (
    user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
    seq INTEGER NOT NULL,
    entity_type TEXT NOT NULL,
    entity_id TEXT NOT NULL,
    op TEXT NOT NULL,
    device_id TEXT,
    created_at REAL NOT NULL,
    entity TEXT,
    PRIMARY KEY (user_id, seq)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS shares (
    id TEXT PRIMARY KEY,
    user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
    token TEXT NOT NULL UNIQUE,
    entity_type TEXT NOT NULL,
    entity_id TEXT NOT NULL,
    password_salt BLOB,
    expires_at REAL,
    created_at REAL NOT NULL,
    revoked_at REAL);
CREATE INDEX IF NOT EXISTS shares_user ON shares(user_id);
CREATE TABLE IF NOT EXISTS share_entries (
    share_id TEXT NOT NULL REFERENCES shares(id) ON DELETE CASCADE,
    entry_id TEXT NOT NULL,
    entry TEXT NOT NULL,
    PRIMARY KEY (share_id, entry_id));
CREATE TABLE IF NOT EXISTS share_counts (
    share_id TEXT PRIMARY KEY REFERENCES shares(id) ON DELETE CASCADE,
    views INTEGER NOT NULL DEFAULT 0,
    downloads INTEGER NOT NULL DEFAULT 0);
)";

} // namespace

void createServiceTables(SQLiteDatabase& database) {
    database.transaction([](SQLiteDatabase& db) {
        for (const auto* tables : {accounts, entries, others})
            db.execute(tables);
    });
}

} // namespace Korvane
