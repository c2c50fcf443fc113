#pragma once

#include <string_view>

// Domain-separation labels. Each is an HKDF "info" or the associated data of a sealed box, and part of the
// stored formats: one changed byte makes every object sealed under it unreadable.
namespace KRCrypto::CryptoContext {

// HKDF infos of the account hierarchy.
inline constexpr std::string_view kek = "korvane/v1/kek";
inline constexpr std::string_view auth = "korvane/v1/auth";
inline constexpr std::string_view rk = "korvane/v1/rk";
inline constexpr std::string_view rkAuth = "korvane/v1/rk-auth";
inline constexpr std::string_view blind = "korvane/v1/blind";
inline constexpr std::string_view dedupe = "korvane/v1/dedupe";
inline constexpr std::string_view appData = "korvane/v1/app-data";

// Boxes of the account hierarchy.
inline constexpr std::string_view mkWrap = "korvane/v1/mk";
inline constexpr std::string_view mkRecoveryWrap = "korvane/v1/mk-recovery";
inline constexpr std::string_view meta = "korvane/v1/meta";
inline constexpr std::string_view fkWrap = "korvane/v1/fk";
inline constexpr std::string_view thumb = "korvane/v1/thumb";
inline constexpr std::string_view appDataItem = "korvane/v1/app-data/"; // the item's name follows

// Start of a chunk's associated data; its index and the count follow.
inline constexpr std::string_view chunk = "korvane/v1/chunk";

// Both an HKDF info and the label of what is sealed under the derived key.
inline constexpr std::string_view quickSend = "korvane/v1/quick-send";
inline constexpr std::string_view pair = "korvane/v1/pair";

// Links.
inline constexpr std::string_view linkWrap = "korvane/v1/link";
inline constexpr std::string_view linkMeta = "korvane/v1/link-meta";
inline constexpr std::string_view linkPassword = "korvane/v1/link-pw"; // HKDF info

// Drops.
inline constexpr std::string_view dropPrivate = "korvane/v1/drop-priv";
inline constexpr std::string_view dropKey = "korvane/v1/drop-key"; // HKDF info
inline constexpr std::string_view dropWrap = "korvane/v1/drop-wrap";
inline constexpr std::string_view dropMeta = "korvane/v1/drop-meta";
inline constexpr std::string_view dropLink = "korvane/v1/drop-link";
inline constexpr std::string_view dropPassword = "korvane/v1/drop-pw";    // HKDF info
inline constexpr std::string_view dropFingerprint = "korvane/v1/drop-fp"; // hashed before the key

// Used by the local index and the search index.
inline constexpr std::string_view localShareKey = "korvane/v1/local-share-key";
inline constexpr std::string_view search = "korvane/v1/search"; // HKDF info
inline constexpr std::string_view searchBlind = "korvane/v1/search-blind";
inline constexpr std::string_view searchDocument = "korvane/v1/search/doc/"; // the document number follows
inline constexpr std::string_view searchShard = "korvane/v1/search/shard/";  // the shard id follows

} // namespace KRCrypto::CryptoContext
