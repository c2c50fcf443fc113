#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KorvaneCore/api/ByteRange.hpp"
#include "KorvaneCore/platform/Async.hpp"

#include <cstdint>
#include <string>

namespace Korvane {

/// Moves sealed bytes to and from pre-signed storage URLs.
///
/// Operations are coroutines on the caller's executor, from any thread, many at once. They throw
/// APIErrorInfo for an answer other than 2xx, and APIError: retryable Transport when the connection failed or
/// another number of bytes came than was asked for, Cancelled when the caller was. What they borrow must live
/// until they have returned or thrown.
class BlobTransport {
public:
    BlobTransport() = default;
    BlobTransport(const BlobTransport&) = delete;
    BlobTransport& operator=(const BlobTransport&) = delete;
    virtual ~BlobTransport() = default;

    /// Uploads one part. `data` is borrowed.
    virtual asio::awaitable<void> put(std::string url, KRCrypto::ByteView data) = 0;

    /// Exactly the bytes of `range`.
    virtual asio::awaitable<KRCrypto::Bytes> get(std::string url, ByteRange range) = 0;

    /// Fills `into`, which is borrowed, with the bytes from `first` on. After a failure its content is
    /// undefined.
    virtual asio::awaitable<void> getInto(std::string url, std::int64_t first,
                                          KRCrypto::MutableBytes into) = 0;
};

} // namespace Korvane
