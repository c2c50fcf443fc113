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
#include <ctime>

namespace KRCrypto::Internal {

namespace {

// Nonces are used soon after they are drawn, so that a snapshot of the machine or a checkpoint of the
// process, should it be resumed twice, holds unused ones only when it was taken in the midst of sealing.
constexpr std::int64_t longestKeptMs = 10;

struct Stock {
    std::size_t left; // unused bytes, at the end of `bytes`; 0 in a forked child
    std::int64_t drawnAtMs;
    std::array<std::uint8_t, 64 * gcmIVSize> bytes;
};

// Trivially destroyed, so that other thread-local objects may still seal at the thread's end.
thread_local Stock* threadStock = nullptr;
thread_local bool withoutStock = false; // the thread ends, or the kernel cannot empty its stock on fork

struct StockEnd {
    StockEnd() = default;

    ~StockEnd() {
        munmap(threadStock, sizeof(Stock));
        threadStock = nullptr;
        withoutStock = true;
    }

    StockEnd(const StockEnd&) = delete;
    StockEnd& operator=(const StockEnd&) = delete;
};

Stock* newStock() noexcept {
    void* page = mmap(nullptr, sizeof(Stock), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) { // NOLINT(performance-no-int-to-ptr): the system's own constant
        return nullptr;
    }
    if (madvise(page, sizeof(Stock), MADV_WIPEONFORK) != 0) {
        munmap(page, sizeof(Stock));
        return nullptr;
    }
    return static_cast<Stock*>(page);
}

// The calling thread's stock, or null when it has to do without.
Stock* stockOfThread() {
    if (threadStock == nullptr && !withoutStock) {
        threadStock = newStock();
        withoutStock = threadStock == nullptr;
        if (!withoutStock) {
            static thread_local const StockEnd end;
        }
    }
    return threadStock;
}

std::int64_t milliseconds() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now); // a few milliseconds coarse, and read without a system call
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

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
    Stock* stock = stockOfThread();
    if (stock == nullptr) {
        KRCrypto::fillRandom(out);
        return;
    }
    const std::int64_t now = milliseconds();
    if (stock->left == 0 || now - stock->drawnAtMs > longestKeptMs) {
        KRCrypto::fillRandom(stock->bytes);
        stock->left = stock->bytes.size();
        stock->drawnAtMs = now;
    }
    const auto nonce = MutableBytes(stock->bytes).last(stock->left).first<gcmIVSize>();
    std::ranges::copy(nonce, out.begin());
    stock->left -= gcmIVSize;
}

} // namespace KRCrypto::Internal
