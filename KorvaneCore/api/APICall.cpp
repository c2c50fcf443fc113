#include "KorvaneCore/api/APICall.hpp"

#include "KorvaneCore/api/APIError.hpp"

#include <boost/url/encode.hpp>
#include <boost/url/rfc/unreserved_chars.hpp>

namespace Korvane {

namespace {

std::string percentEncoded(std::string_view text) {
    return boost::urls::encode(text, boost::urls::unreserved_chars);
}

HTTPHeader header(std::string name, std::string_view value) {
    return {std::move(name), KRCrypto::SecretBytes::copyOf(value)};
}

} // namespace

std::string APICall::segment(std::string_view identifier) {
    if (identifier.empty() || identifier == "." || identifier == "..")
        throw APIError(APIError::BadRequest{"not an identifier: \"" + std::string(identifier) + "\""});
    return "/" + percentEncoded(identifier);
}

std::string APICall::url(const KRConfiguration::URL& base) const {
    std::string text = base.scheme();
    text += "://";
    text += base.encoded_host_and_port();
    text += base.encoded_path();
    if (text.back() == '/')
        text.pop_back();
    text += "/v1" + path;
    char separator = '?';
    for (const auto& [name, value] : query) {
        text += std::exchange(separator, '&') + percentEncoded(name) + '=' + percentEncoded(value);
    }
    return text;
}

HTTPRequest APICall::request(const KRConfiguration::URL& base,
                             std::optional<std::string_view> accessToken) const {
    HTTPRequest request{method, url(base), {header("Accept", accept)}, std::nullopt, maxAnswerSize};
    if (body) {
        request.body = body->view();
        request.headers.push_back(header("Content-Type", contentType));
    }
    if (accessToken) {
        auto value = "Bearer " + std::string(*accessToken);
        request.headers.push_back(header("Authorization", value));
        KRCrypto::wipe(value);
    }
    request.headers.insert(request.headers.end(), headers.begin(), headers.end());
    return request;
}

} // namespace Korvane
