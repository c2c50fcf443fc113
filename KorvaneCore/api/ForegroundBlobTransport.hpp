#pragma once

#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/api/BlobTransport.hpp"

#include <memory>

namespace Korvane {

/// Transfers by this process itself, through its APIClient.
class ForegroundBlobTransport final : public BlobTransport {
public:
    explicit ForegroundBlobTransport(std::shared_ptr<APIClient> client) : api(std::move(client)) {}

    asio::awaitable<void> put(std::string url, KRCrypto::ByteView data) override;
    asio::awaitable<KRCrypto::Bytes> get(std::string url, ByteRange range) override;
    asio::awaitable<void> getInto(std::string url, std::int64_t first, KRCrypto::MutableBytes into) override;

    const std::shared_ptr<APIClient> api;
};

} // namespace Korvane
