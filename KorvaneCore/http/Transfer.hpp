#pragma once

#include "KorvaneCore/http/CurlSession.hpp"
#include "KorvaneCore/http/HTTPError.hpp"

#include <curl/curl.h>

#include <array>
#include <exception>
#include <functional>
#include <memory>
#include <string>

namespace Korvane {

struct EasyHandleDeleter {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};

using EasyHandle = std::unique_ptr<CURL, EasyHandleDeleter>;

/// One request on its way through libcurl. Touched by the session's thread only, once made.
class Transfer {
public:
    using Completion = std::function<void(std::exception_ptr, HTTPResponse)>;

    Transfer(HTTPRequest request, Completion completion);
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    ~Transfer();

    /// Sets up `handle`, a fresh or reset one, and keeps it. Throws HTTPError (malformed).
    void prepare(EasyHandle handle, const CurlSession::Options& options);

    [[nodiscard]] CURL* handle() const noexcept { return handle_.get(); }

    /// Gives the handle back, for the next transfer.
    EasyHandle release() noexcept;

    /// Hands the answer, or what stands in its place, to whoever waits. Once.
    void finish(CURLcode code);
    void fail(std::exception_ptr error);

private:
    static std::size_t onHeader(const char* data, std::size_t size, std::size_t count, void* self) noexcept;
    static std::size_t onBody(const char* data, std::size_t size, std::size_t count, void* self) noexcept;
    static std::size_t onRead(char* buffer, std::size_t size, std::size_t count, void* self) noexcept;
    static int onSeek(void* self, curl_off_t offset, int origin) noexcept;

    static int onConnected(void* self, char* remote, char* local, int remotePort, int localPort) noexcept;

    void setHeaders();
    void addHeader(const std::string& line);
    void setBody();
    [[nodiscard]] std::uint64_t bodySize() const;
    void takeHeader(std::string_view line);
    bool takeBody(KRCrypto::ByteView bytes);
    [[nodiscard]] int status() const;
    [[nodiscard]] HTTPError error(CURLcode code) const;

    HTTPRequest request_;
    Completion completion_;
    EasyHandle handle_;
    curl_slist* headers_ = nullptr;
    std::uint64_t sent_ = 0;
    std::size_t headerBytes_ = 0;
    bool tooLarge_ = false;
    bool mobile_ = false;          ///< refused, since the way leads over a mobile network
    std::exception_ptr bodyError_; ///< what a source or sink threw
    HTTPResponse response_;
    std::array<char, CURL_ERROR_SIZE> errorText_{};
};

} // namespace Korvane
