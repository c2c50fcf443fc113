#include "KRCrypto/internal/SystemRandom.hpp"

#include "KRCrypto/Random.hpp"
#include "KRCrypto/internal/OpenSSL.hpp"

#include <openssl/rand.h>
#include <sys/mman.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace KRCrypto::Internal {

namespace {

struct Stock {
    std::size_t left; // unused bytes, at the end of `bytes`; 0 in a forked child
    std::array<std::uint8_t, 340 * gcmIVSize> bytes;
};

class NonceStock {
public:
    NonceStock() noexcept {
        void* page = mmap(nullptr, sizeof(Stock), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED) { // NOLINT(performance-no-int-to-ptr): the system's own constant
            return;
        }
        if (madvise(page, sizeof(Stock), MADV_WIPEONFORK) != 0) {
            munmap(page, sizeof(Stock));
            return;
        }
        stock_ = static_cast<Stock*>(page);
    }

    ~NonceStock() {
        if (stock_ != nullptr) {
            munmap(stock_, sizeof(Stock));
        }
    }

    NonceStock(const NonceStock&) = delete;
    NonceStock& operator=(const NonceStock&) = delete;

    void take(std::span<std::uint8_t, gcmIVSize> out) {
        if (stock_ == nullptr) {
            KRCrypto::fillRandom(out);
            return;
        }
        if (stock_->left == 0) {
            KRCrypto::fillRandom(stock_->bytes);
            stock_->left = stock_->bytes.size();
        }
        const auto start = stock_->bytes.size() - stock_->left;
        std::ranges::copy(MutableBytes(stock_->bytes).subspan(start, gcmIVSize), out.begin());
        stock_->left -= gcmIVSize;
    }

private:
    Stock* stock_ = nullptr; // null when the kernel cannot empty it on fork
};

} // namespace

bool systemRandom(MutableBytes out) {
    while (!out.empty()) {
        const ssize_t got = getrandom(out.data(), out.size(), 0);
        if (got > 0) {
            out = out.subspan(static_cast<std::size_t>(got));
        } else if (got == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool generatedRandom(MutableBytes out) {
    const ErrorQueueScope errors;
    return RAND_priv_bytes_ex(nullptr, out.data(), out.size(), 0) == 1;
}

void fillRandom(MutableBytes out, RandomSource system, RandomSource generator) {
    if (!system(out) && !generator(out)) {
        std::fputs("No source of random bytes is available\n", stderr);
        std::abort();
    }
}

void fillNonce(std::span<std::uint8_t, gcmIVSize> out) {
    thread_local NonceStock stock;
    stock.take(out);
}

} // namespace KRCrypto::Internal
