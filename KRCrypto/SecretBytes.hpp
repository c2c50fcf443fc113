#pragma once

#include "KRCrypto/Bytes.hpp"

#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace KRCrypto {

// Overwrites bytes in a way the compiler does not leave out.
void wipe(MutableBytes bytes) noexcept;
void wipe(std::string& text) noexcept;

// Overwrites a text or bytes that may be a secret when it ends, however its scope is left.
template <class Container>
class WipedAtEnd {
public:
    explicit WipedAtEnd(Container& bytes) noexcept : bytes_(bytes) {}

    WipedAtEnd(const WipedAtEnd&) = delete;
    WipedAtEnd& operator=(const WipedAtEnd&) = delete;

    ~WipedAtEnd() { wipe(bytes_); }

private:
    Container& bytes_;
};

// A key, a password, or text that holds one. Its bytes are overwritten before their memory is given back: at
// the end of its life, when it is assigned to and when it shrinks or grows. Copies are secrets of their own;
// a moved-from one is empty. It cannot be printed or formatted, and turns into a plain container only by an
// explicit copy of view() or text().
class SecretBytes {
public:
    SecretBytes() noexcept = default;

    // That many zero bytes, to be written through bytes().
    explicit SecretBytes(std::size_t size);

    static SecretBytes copyOf(ByteView bytes);

    static SecretBytes copyOf(std::string_view text) { return copyOf(asBytes(text)); }

    SecretBytes(const SecretBytes& other);
    SecretBytes(SecretBytes&& other) noexcept;
    SecretBytes& operator=(const SecretBytes& other);
    SecretBytes& operator=(SecretBytes&& other) noexcept;
    ~SecretBytes();

    std::size_t size() const noexcept { return size_; }

    bool empty() const noexcept { return size_ == 0; }

    ByteView view() const noexcept { return {storage_.get(), size_}; }

    MutableBytes bytes() noexcept { return {storage_.get(), size_}; }

    std::string_view text() const noexcept { return asText(view()); }

    // So that a secret can be passed wherever bytes are read.
    operator ByteView() const noexcept { return view(); } // NOLINT(google-explicit-constructor)

    // Keeps the bytes that fit; new ones are zero.
    void resize(std::size_t size);

    // Takes time that depends on the sizes only.
    friend bool operator==(const SecretBytes& a, const SecretBytes& b) noexcept;

    friend std::ostream& operator<<(std::ostream&, const SecretBytes&) = delete;

private:
    void swap(SecretBytes& other) noexcept;

    std::unique_ptr<std::uint8_t[]>
        storage_; // NOLINT(modernize-avoid-c-arrays): fixed size, no spare capacity
    std::size_t size_ = 0;
};

} // namespace KRCrypto
