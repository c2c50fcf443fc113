// `korvane-s3-check PUT-URL GET-URL FORGED-PUT-URL ABSENT-GET-URL`: moves one part to and from an S3-style
// storage, by every form of transport. Prints a line for each; ends with 1 at the first difference.
// scripts/s3-check calls it.

#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/api/BackgroundBlobTransport.hpp"
#include "KorvaneCore/api/ForegroundBlobTransport.hpp"
#include "KorvaneCore/keychain/FileKeychain.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>

#include <cstdio>
#include <optional>
#include <stdexcept>

using namespace Korvane;

namespace {

struct URLs {
    std::string put;
    std::string get;
    std::string forged;
    std::string absent;
};

void require(bool holds, const char* what) {
    if (!holds)
        throw std::runtime_error(what);
}

asio::awaitable<std::optional<APIError>> failure(asio::awaitable<void> call) {
    try {
        co_await std::move(call);
    } catch (const APIErrorInfo& info) {
        co_return info.error;
    }
    co_return std::nullopt;
}

asio::awaitable<void> check(BlobTransport& transport, const URLs& urls) {
    KRCrypto::Bytes part(std::size_t{10} << 20);
    for (std::size_t i = 0; i < part.size(); ++i)
        part[i] = static_cast<std::uint8_t>(i * 13 + i / 509);
    co_await transport.put(urls.put, part);
    const auto size = static_cast<std::int64_t>(part.size());
    for (const auto range : {ByteRange{0, 1024}, ByteRange{5'000'000, 5'000'001}, ByteRange{0, size}}) {
        const auto bytes = co_await transport.get(urls.get, range);
        require(std::equal(bytes.begin(), bytes.end(), part.begin() + range.first), "other bytes");
    }
    const auto forged = co_await failure(transport.put(urls.forged, part));
    require(forged && forged->is<APIError::Forbidden>(), "a forged signature is not forbidden");
    KRCrypto::Bytes buffer(10);
    const auto absent = co_await failure(transport.getInto(urls.absent, 0, buffer));
    require(absent && absent->is<APIError::NotFound>(), "an absent part is not missing");
}

void run(const char* form, BlobTransport& transport, const URLs& urls) {
    asio::io_context context;
    asio::co_spawn(context, check(transport, urls), [](const std::exception_ptr& error) {
        if (error)
            std::rethrow_exception(error);
    });
    context.run();
    std::printf("%s: a part of 10 MiB there and back, ranges, refusals\n", form);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5)
        return 2;
    const URLs urls{argv[1], argv[2], argv[3], argv[4]};
    try {
        asio::io_context context;
        ForegroundBlobTransport foreground(
            std::make_shared<APIClient>(context.get_executor(), KRConfiguration(),
                                        std::make_shared<FileKeychain>("unused-keychain.json")));
        run("foreground", foreground, urls);
        BackgroundBlobTransport background("s3-check.transfers", true);
        run("background", background, urls);
        require(!background.usingForegroundFallback(), "no background session");
        BackgroundBlobTransport::Options none;
        none.helper = "/bin/false";
        BackgroundBlobTransport fallback("s3-check.transfers", true, none);
        run("fallback", fallback, urls);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "korvane-s3-check: %s\n", error.what());
        return 1;
    }
    return 0;
}
