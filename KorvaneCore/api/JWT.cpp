#include "KorvaneCore/api/JWT.hpp"

#include "KRCrypto/B64.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

namespace Korvane::JWT {

namespace {

template <class Case>
std::optional<Case> claim(std::string_view name, std::string_view token) {
    const auto claims = payload(token);
    if (!claims)
        return std::nullopt;
    const auto found = claims->find(std::string(name));
    const auto* value = found == claims->end() ? nullptr : found->second.as<Case>();
    return value == nullptr ? std::nullopt : std::optional(*value);
}

} // namespace

std::optional<std::map<std::string, JSONValue>> payload(std::string_view token) {
    const auto first = token.find('.');
    if (first == std::string_view::npos)
        return std::nullopt;
    const auto rest = token.substr(first + 1);
    try {
        const auto json = KRCrypto::B64::decodeSecretURL(rest.substr(0, rest.find('.')));
        return KRJSON::read<std::map<std::string, JSONValue>>(json.text());
    } catch (const KRCrypto::KRCryptoError&) {
        return std::nullopt;
    } catch (const JSONError&) {
        return std::nullopt;
    }
}

std::optional<std::string> stringClaim(std::string_view name, std::string_view token) {
    return claim<std::string>(name, token);
}

std::optional<double> expiry(std::string_view token) {
    return claim<double>("exp", token);
}

} // namespace Korvane::JWT
