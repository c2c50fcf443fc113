#pragma once

#include "KorvaneCore/api/ByteRange.hpp"
#include "KorvaneCore/api/records/Uploads.hpp"
#include "KorvaneCore/http/HTTPSession.hpp"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

/// Calls to pre-signed storage URLs through any session: no token, no second try. All throw as BlobTransport
/// says; what they borrow must live until they have returned or thrown.
namespace Korvane::StorageCalls {

/// Requests as the storage wants them, the body and its place left to the caller.
[[nodiscard]] HTTPRequest putRequest(std::string url);

/// Throws APIError::BadRequest unless there is a first byte and a later end.
[[nodiscard]] HTTPRequest getRequest(std::string url, ByteRange range);

/// The range of so many bytes. Throws APIError::BadRequest when there is no such one.
[[nodiscard]] ByteRange rangeOf(std::int64_t first, std::size_t length);

/// Of a range, in bytes; an empty one is a range here. Throws as rangeOf().
[[nodiscard]] std::size_t lengthOf(ByteRange range);

/// For the catch block around a transfer: throws what it means to the caller.
[[noreturn]] void rethrow(const std::exception& error);

/// Throws the APIErrorInfo of an answer other than 2xx.
void requireSuccess(const HTTPResponse& answer);

/// requireSuccess(), and a retryable APIError::Transport unless the answer is the range asked for, of which
/// `received` bytes came.
void requireRange(const HTTPResponse& answer, ByteRange range, std::uint64_t received);

/// Any 2xx answer is success; one that is no JSON gives an empty record. `data` is borrowed.
asio::awaitable<PartUploadResponse> putPart(std::shared_ptr<HTTPSession> session, std::string url,
                                            KRCrypto::ByteView data, bool allowsCellular = true);

asio::awaitable<KRCrypto::Bytes> getRange(std::shared_ptr<HTTPSession> session, std::string url,
                                          ByteRange range);

/// Fills `into`, which is borrowed, with the bytes from `first` on.
asio::awaitable<void> getRangeInto(std::shared_ptr<HTTPSession> session, std::string url, std::int64_t first,
                                   KRCrypto::MutableBytes into, bool allowsCellular = true);

} // namespace Korvane::StorageCalls
