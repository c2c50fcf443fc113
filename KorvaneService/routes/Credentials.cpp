#include "KorvaneService/routes/Credentials.hpp"

#include "KRCrypto/Sha256.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KorvaneService/Columns.hpp"
#include "KorvaneService/ServiceState.hpp"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/trim.hpp>

namespace Korvane::Credentials {

std::string normalisedEmail(const std::string& email) {
    static constexpr std::size_t longest = 254; // RFC 5321
    const auto address = boost::to_lower_copy(boost::trim_copy(email));
    const auto at = address.find('@');
    if (at == 0 || at == std::string::npos || at + 1 == address.size() || address.size() > longest)
        throw Refusal::badRequest("this is no e-mail address");
    return address;
}

KRCrypto::Bytes hashOf(const KRCrypto::SecretBytes& key) {
    const auto digest = KRCrypto::sha256(key);
    return {digest.begin(), digest.end()};
}

bool matches(const KRCrypto::SecretBytes& key, const KRCrypto::Bytes& hash) {
    return KRCrypto::SecretBytes::copyOf(hashOf(key)) == KRCrypto::SecretBytes::copyOf(hash);
}

void countAttempt(Exchange& exchange, const std::string& email) {
    exchange.state.rateLimiter().count("credentials:" + email,
                                       exchange.state.settings().credentialAttemptsPerMinute);
}

std::optional<SQLRow> account(Exchange& exchange, const std::string& email) {
    auto rows = exchange.database.query("SELECT * FROM users WHERE email = ?", email);
    return rows.empty() ? std::nullopt : std::optional(rows[0]);
}

void require(Exchange& exchange, const std::optional<KRCrypto::SecretBytes>& authKey) {
    const auto rows =
        exchange.database.query("SELECT email, auth_hash FROM users WHERE id = ?", exchange.session.userId);
    countAttempt(exchange, Columns::text(rows.at(0), "email"));
    if (!authKey || !matches(*authKey, Columns::bytes(rows.at(0), "auth_hash")))
        throw Refusal::wrongCredentials("wrong password");
}

void requireKeys(std::initializer_list<const KRCrypto::SecretBytes*> keys) {
    for (const auto* key : keys)
        if (key->size() != KRCrypto::keySize)
            throw Refusal::badRequest("an authentication key has 32 bytes");
}

void requireWrappedKey(const KRCrypto::Bytes& box) {
    if (box.size() != KRCrypto::keySize + KRCrypto::sealedOverhead)
        throw Refusal::badRequest("a wrapped master key has 61 bytes");
}

} // namespace Korvane::Credentials
