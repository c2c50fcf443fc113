#include "KorvaneService/StorageURL.hpp"

#include "KRCrypto/Derivation.hpp"
#include "KRCrypto/Hex.hpp"

#include <boost/algorithm/string/join.hpp>

#include <charconv>

namespace Korvane::StorageURL {

namespace {

std::string signature(const ServiceState& state, const std::string& method, const std::string& path,
                      const std::string& expires) {
    const auto text = method + '\n' + path + '\n' + expires;
    return KRCrypto::hexString(KRCrypto::hmacSHA256(state.key("storage-url"), KRCrypto::asBytes(text)));
}

std::string secondsText(Clock::Time time) {
    return std::to_string(std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count());
}

std::string make(const ServiceState& state, const std::string& method, const std::string& path) {
    const auto expires = secondsText(expiry(state));
    return state.baseURL() + path + "?expires=" + expires +
           "&signature=" + signature(state, method, path, expires);
}

std::string value(const Request& request, const std::string& name) {
    const auto found = request.query.find(name);
    return found == request.query.end() ? "" : found->second;
}

} // namespace

std::string putPart(const ServiceState& state, const std::string& uploadId, std::int64_t part) {
    return make(state, "PUT", "/storage/parts/" + uploadId + "/" + std::to_string(part));
}

std::string getBlob(const ServiceState& state, const std::string& blobFolder) {
    return make(state, "GET", "/storage/blobs/" + blobFolder);
}

Clock::Time expiry(const ServiceState& state) {
    return state.now() + state.settings().storageURLLifetime;
}

void check(const ServiceState& state, const Request& request) {
    const auto expires = value(request, "expires");
    const auto expected = signature(state, request.method, "/" + boost::join(request.path, "/"), expires);
    if (SecretText(value(request, "signature")) != SecretText(expected))
        throw Refusal::forbidden("the URL's signature does not match");
    std::int64_t seconds = 0;
    std::from_chars(expires.data(), expires.data() + expires.size(), seconds);
    if (state.now() >= Clock::Time(std::chrono::seconds(seconds)))
        throw Refusal::forbidden("the URL has expired");
}

} // namespace Korvane::StorageURL
