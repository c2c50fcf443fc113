#pragma once

#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/api/records/Account.hpp"
#include "KorvaneService/Exchange.hpp"

#include <optional>
#include <string>

/// Proofs of who an account belongs to. The service keeps hashes of authentication keys only.
namespace Korvane::Credentials {

/// Trimmed, ASCII in lower case. Throws Refusal for what is no address.
[[nodiscard]] std::string normalisedEmail(const std::string& email);

[[nodiscard]] KRCrypto::Bytes hashOf(const KRCrypto::SecretBytes& key);

/// Whether `key` is the one with this hash; takes the same time either way.
[[nodiscard]] bool matches(const KRCrypto::SecretBytes& key, const KRCrypto::Bytes& hash);

/// Counts an attempt for this address. Throws Refusal beyond the limit.
void countAttempt(Exchange& exchange, const std::string& email);

/// The row of `users` with this address.
[[nodiscard]] std::optional<SQLRow> account(Exchange& exchange, const std::string& email);

/// Throws Refusal unless the proof holds the signed-in user's authentication key.
void require(Exchange& exchange, const std::optional<KRCrypto::SecretBytes>& authKey);

/// 32 bytes each, and boxes that a master key fits in. Throws Refusal.
void requireKeys(std::initializer_list<const KRCrypto::SecretBytes*> keys);
void requireWrappedKey(const KRCrypto::Bytes& box);

} // namespace Korvane::Credentials
