#pragma once

#include "KRCrypto/Bytes.hpp"

#include <array>
#include <memory>

struct evp_md_ctx_st;

namespace KRCrypto {

using Digest = std::array<std::uint8_t, 32>;

// SHA-256 (FIPS 180-4) of bytes that come piece by piece. Copies go on from the same state. One thread at a
// time.
class Sha256 {
public:
    Sha256();
    Sha256(const Sha256& other);
    Sha256(Sha256&&) noexcept = default;
    Sha256& operator=(const Sha256& other);
    Sha256& operator=(Sha256&&) noexcept = default;
    ~Sha256() = default;

    void update(ByteView data);

    // Of everything so far; more may follow.
    Digest digest() const;

private:
    struct Deleter {
        void operator()(evp_md_ctx_st* context) const noexcept;
    };

    std::unique_ptr<evp_md_ctx_st, Deleter> context_;
};

Digest sha256(ByteView data);

} // namespace KRCrypto
