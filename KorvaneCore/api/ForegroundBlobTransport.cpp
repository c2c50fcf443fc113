#include "KorvaneCore/api/ForegroundBlobTransport.hpp"

#include <utility>

namespace Korvane {

asio::awaitable<void> ForegroundBlobTransport::put(std::string url, KRCrypto::ByteView data) {
    co_await api->putPart(std::move(url), data);
}

asio::awaitable<KRCrypto::Bytes> ForegroundBlobTransport::get(std::string url, ByteRange range) {
    return api->getRange(std::move(url), range);
}

asio::awaitable<void> ForegroundBlobTransport::getInto(std::string url, std::int64_t first,
                                                       KRCrypto::MutableBytes into) {
    return api->getRangeInto(std::move(url), first, into);
}

} // namespace Korvane
