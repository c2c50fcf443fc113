#include "KorvaneCore/http/Transfer.hpp"

#include "KorvaneCore/platform/MobileNetwork.hpp"

#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace Korvane {

namespace {

constexpr std::size_t maxHeaderBytes = 64 << 10;
constexpr std::size_t firstAnswerBytes = 16
                                         << 10; // an answer with tokens fits, so it leaves no copies behind
constexpr long uploadBufferBytes = 512 << 10;   // fewer, larger writes: measured fastest for 10 MiB parts
constexpr long downloadBufferBytes = 512 << 10; // likewise

HTTPError malformed(const std::string& reason) {
    return {HTTPError::Kind::malformed, reason};
}

/// A value with a line break would be read as further headers.
bool isHeaderText(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) >= 0x20 && c != 0x7f; });
}

/// A header's value: the white space around it is no part of it (RFC 9110, 5.5).
std::string_view withoutBlanks(std::string_view text) {
    constexpr std::string_view blanks = " \t";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

bool isLoopback(const boost::urls::url_view& url) {
    const auto host = url.host();
    return host == "localhost" || host == "[::1]" || host.starts_with("127.");
}

boost::urls::url_view checkedURL(const std::string& text) {
    const auto url = boost::urls::parse_uri(text);
    if (!url || url->encoded_host().empty() ||
        (url->scheme_id() != boost::urls::scheme::http && url->scheme_id() != boost::urls::scheme::https))
        throw malformed("not an http or https URL");
    return *url;
}

template <class Value>
void set(CURL* handle, CURLoption option, Value value) {
    if (const auto code = curl_easy_setopt(handle, option, value); code != CURLE_OK)
        throw malformed(curl_easy_strerror(code));
}

} // namespace

Transfer::Transfer(HTTPRequest request, Completion completion)
    : request_(std::move(request)), completion_(std::move(completion)) {}

Transfer::~Transfer() {
    for (auto* header = headers_; header != nullptr; header = header->next)
        KRCrypto::wipe({reinterpret_cast<std::uint8_t*>(header->data), std::strlen(header->data)});
    curl_slist_free_all(headers_);
}

void Transfer::prepare(EasyHandle handle, const CurlSession::Options& options) {
    handle_ = std::move(handle);
    auto* curl = handle_.get();
    const auto url = checkedURL(request_.url);
    set(curl, CURLOPT_URL, request_.url.c_str());
    set(curl, CURLOPT_PATH_AS_IS, 1L);
    set(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    set(curl, CURLOPT_FOLLOWLOCATION, 0L);
    set(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    set(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!options.trustedCertificates.empty())
        set(curl, CURLOPT_CAINFO, options.trustedCertificates.c_str());
    if (isLoopback(url))
        set(curl, CURLOPT_PROXY, "");
    set(curl, CURLOPT_NOSIGNAL, 1L);
    set(curl, CURLOPT_FRESH_CONNECT, request_.freshConnection ? 1L : 0L);
    set(curl, CURLOPT_QUICK_EXIT, 1L); // a cancelled look-up of a name must not hold up the thread
    const auto idle = static_cast<long>(request_.idle.value_or(options.idle).count());
    set(curl, CURLOPT_CONNECTTIMEOUT, idle);
    set(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    set(curl, CURLOPT_LOW_SPEED_TIME, idle);
    set(curl, CURLOPT_TIMEOUT, static_cast<long>(options.total.count()));
    set(curl, CURLOPT_ERRORBUFFER, errorText_.data());
    set(curl, CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
    set(curl, CURLOPT_HEADERDATA, this);
    set(curl, CURLOPT_WRITEFUNCTION, &Transfer::onBody);
    set(curl, CURLOPT_WRITEDATA, this);
    set(curl, CURLOPT_PRIVATE, this);
    if (!request_.allowsCellular) {
        set(curl, CURLOPT_PREREQFUNCTION, &Transfer::onConnected);
        set(curl, CURLOPT_PREREQDATA, this);
    }
    setBody();
    setHeaders();
}

void Transfer::setBody() {
    auto* curl = handle_.get();
    if (request_.source != nullptr || request_.body) {
        const auto size = bodySize();
        set(curl, CURLOPT_UPLOAD, 1L);
        set(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(size));
        set(curl, CURLOPT_READFUNCTION, &Transfer::onRead);
        set(curl, CURLOPT_READDATA, this);
        set(curl, CURLOPT_SEEKFUNCTION, &Transfer::onSeek);
        set(curl, CURLOPT_SEEKDATA, this);
        if (size > static_cast<std::uint64_t>(uploadBufferBytes))
            set(curl, CURLOPT_UPLOAD_BUFFERSIZE, uploadBufferBytes);
    } else if (request_.method == "POST" || request_.method == "PUT" || request_.method == "PATCH") {
        set(curl, CURLOPT_POSTFIELDSIZE, 0L);
        set(curl, CURLOPT_POSTFIELDS, "");
    }
    if (request_.sink != nullptr)
        set(curl, CURLOPT_BUFFERSIZE, downloadBufferBytes);
    set(curl, CURLOPT_CUSTOMREQUEST, request_.method.c_str());
}

std::uint64_t Transfer::bodySize() const {
    if (request_.source != nullptr)
        return request_.source->size();
    return request_.body ? request_.body->size() : 0;
}

void Transfer::setHeaders() {
    bool typed = false;
    for (const auto& [name, value] : request_.headers) {
        if (name.empty() || !isHeaderText(name) || name.find(':') != std::string::npos ||
            !isHeaderText(value.text()))
            throw malformed("a header holds control characters");
        typed = typed || name == "Content-Type";
        auto line = name + (value.empty() ? ";" : ": ");
        line += value.text();
        addHeader(line);
        KRCrypto::wipe(line);
    }
    addHeader("Expect:");
    if (!typed)
        addHeader("Content-Type:");
    set(handle_.get(), CURLOPT_HTTPHEADER, headers_);
}

void Transfer::addHeader(const std::string& line) {
    auto* longer = curl_slist_append(headers_, line.c_str());
    if (longer == nullptr)
        throw std::bad_alloc();
    headers_ = longer;
}

EasyHandle Transfer::release() noexcept {
    return std::move(handle_);
}

void Transfer::finish(CURLcode code) {
    if (code != CURLE_OK) {
        fail(bodyError_ ? bodyError_ : std::make_exception_ptr(error(code)));
        return;
    }
    response_.status = status();
    std::exchange(completion_, {})(nullptr, std::move(response_));
}

int Transfer::status() const {
    long status = 0;
    curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &status);
    return static_cast<int>(status);
}

void Transfer::fail(std::exception_ptr error) {
    std::exchange(completion_, {})(std::move(error), {});
}

HTTPError Transfer::error(CURLcode code) const {
    using Kind = HTTPError::Kind;
    if (tooLarge_)
        return {Kind::tooLarge, "the answer is larger than allowed"};
    if (mobile_)
        return {Kind::connection, "the way leads over a mobile network"};
    const std::string text = errorText_.front() != '\0' ? errorText_.data() : curl_easy_strerror(code);
    switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
        return {Kind::timeout, text};
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
        return {Kind::certificate, text};
    case CURLE_UNSUPPORTED_PROTOCOL: // the URL's own protocol is known to be right by now
    case CURLE_WEIRD_SERVER_REPLY:
        return {Kind::notHTTP, text};
    case CURLE_URL_MALFORMAT:
        return {Kind::malformed, text};
    default:
        return {Kind::connection, text};
    }
}

void Transfer::takeHeader(std::string_view line) {
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n'))
        line.remove_suffix(1);
    if (line.starts_with("HTTP/")) {
        response_.headers.clear(); // of an interim answer
        return;
    }
    const auto colon = line.find(':');
    if (colon == std::string_view::npos)
        return;
    response_.headers.emplace_back(line.substr(0, colon), withoutBlanks(line.substr(colon + 1)));
}

bool Transfer::takeBody(KRCrypto::ByteView bytes) {
    const bool isSuccess = status() >= 200 && status() <= 299;
    if (request_.sink != nullptr && isSuccess) {
        tooLarge_ = !request_.sink->write(bytes);
        return !tooLarge_;
    }
    auto& body = response_.body;
    if (!isSuccess) // what the status says counts, however long the text that comes with it
        bytes = bytes.first(std::min(bytes.size(), request_.maxAnswerSize - body.size()));
    if (body.empty()) {
        curl_off_t promised = 0;
        curl_easy_getinfo(handle_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &promised);
        const auto expected =
            std::max(firstAnswerBytes, static_cast<std::size_t>(std::max<curl_off_t>(promised, 0)));
        body.reserve(std::min(expected, request_.maxAnswerSize));
    }
    if (bytes.size() > request_.maxAnswerSize - body.size()) {
        tooLarge_ = true;
        return false;
    }
    body.insert(body.end(), bytes.begin(), bytes.end());
    return true;
}

// libcurl's callbacks: what they throw cannot pass through it and ends the transfer instead.

std::size_t Transfer::onHeader(const char* data, std::size_t size, std::size_t count, void* self) noexcept {
    auto& transfer = *static_cast<Transfer*>(self);
    const auto length = size * count;
    try {
        transfer.headerBytes_ += length;
        if (transfer.headerBytes_ > maxHeaderBytes)
            return 0;
        transfer.takeHeader({data, length});
        return length;
    } catch (const std::exception&) {
        return 0;
    }
}

int Transfer::onConnected(void* self, char*, char* local, int, int) noexcept {
    auto& transfer = *static_cast<Transfer*>(self);
    transfer.mobile_ = MobileNetwork::isUsedBy(local);
    return transfer.mobile_ ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
}

std::size_t Transfer::onBody(const char* data, std::size_t size, std::size_t count, void* self) noexcept {
    auto& transfer = *static_cast<Transfer*>(self);
    try {
        return transfer.takeBody(KRCrypto::asBytes({data, size * count})) ? size * count : 0;
    } catch (const std::exception&) {
        transfer.bodyError_ = std::current_exception();
        return 0;
    }
}

std::size_t Transfer::onRead(char* buffer, std::size_t size, std::size_t count, void* self) noexcept {
    auto& transfer = *static_cast<Transfer*>(self);
    const auto rest = transfer.bodySize() - transfer.sent_;
    const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(rest, size * count));
    if (length == 0)
        return 0;
    if (auto* source = transfer.request_.source) {
        try {
            source->read(transfer.sent_, {reinterpret_cast<std::uint8_t*>(buffer), length});
        } catch (const std::exception&) {
            transfer.bodyError_ = std::current_exception();
            return CURL_READFUNC_ABORT;
        }
    } else if (const auto& body = transfer.request_.body) {
        std::memcpy(buffer, body->data() + transfer.sent_, length);
    }
    transfer.sent_ += length;
    return length;
}

int Transfer::onSeek(void* self, curl_off_t offset, int origin) noexcept {
    auto& transfer = *static_cast<Transfer*>(self);
    if (origin != SEEK_SET || offset < 0 || static_cast<std::uint64_t>(offset) > transfer.bodySize())
        return CURL_SEEKFUNC_FAIL;
    transfer.sent_ = static_cast<std::uint64_t>(offset);
    return CURL_SEEKFUNC_OK;
}

} // namespace Korvane
