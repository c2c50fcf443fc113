#pragma once

#include "KRCrypto/Bytes.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Korvane {

/// Gives a request's body piece by piece. Called on the session's thread; what it throws ends the transfer
/// and is what send() throws.
class BodySource {
public:
    BodySource() = default;
    BodySource(const BodySource&) = delete;
    BodySource& operator=(const BodySource&) = delete;
    virtual ~BodySource() = default;

    /// In bytes; does not change.
    [[nodiscard]] virtual std::uint64_t size() const = 0;

    /// Fills `into` from `offset` on; never asked for more than there is.
    virtual void read(std::uint64_t offset, KRCrypto::MutableBytes into) = 0;
};

/// Takes an answer's body as it arrives. Called on the session's thread; what it throws ends the transfer and
/// is what send() throws.
class BodySink {
public:
    BodySink() = default;
    BodySink(const BodySink&) = delete;
    BodySink& operator=(const BodySink&) = delete;
    virtual ~BodySink() = default;

    /// False for more than is wanted, which ends the transfer with HTTPError (tooLarge).
    virtual bool write(KRCrypto::ByteView bytes) = 0;
};

/// Fills memory of the caller's from its start.
class BufferSink final : public BodySink {
public:
    explicit BufferSink(KRCrypto::MutableBytes buffer) : size_(buffer.size()), rest_(buffer) {}

    bool write(KRCrypto::ByteView bytes) override {
        if (bytes.size() > rest_.size())
            return false;
        std::memcpy(rest_.data(), bytes.data(), bytes.size());
        rest_ = rest_.subspan(bytes.size());
        return true;
    }

    [[nodiscard]] std::size_t received() const noexcept { return size_ - rest_.size(); }

private:
    std::size_t size_;
    KRCrypto::MutableBytes rest_;
};

/// Keeps the first bytes and lets the rest go.
class HeadSink final : public BodySink {
public:
    explicit HeadSink(std::size_t most) : most_(most) {}

    bool write(KRCrypto::ByteView bytes) override {
        const auto kept = bytes.first(std::min(bytes.size(), most_ - head_.size()));
        head_.insert(head_.end(), kept.begin(), kept.end());
        return true;
    }

    [[nodiscard]] KRCrypto::Bytes& head() noexcept { return head_; }

private:
    std::size_t most_;
    KRCrypto::Bytes head_;
};

} // namespace Korvane
