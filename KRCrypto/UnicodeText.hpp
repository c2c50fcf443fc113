#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What names go through before they are compared or sealed. Texts are UTF-8; one that is not throws
// InvalidEncoding.
namespace KRCrypto {

bool isUTF8(std::string_view text) noexcept;

// The longest start of at most `bytes` bytes that ends between code points of UTF-8.
std::string_view startOf(std::string_view text, std::size_t bytes) noexcept;
void requireUTF8(std::string_view text);

// Canonical composition (Unicode NFC). Also throws InvalidEncoding for more than mostMarks combining marks in
// a row, since sorting them takes time that grows with the square of their number.
inline constexpr std::size_t mostMarks = 256;
std::string toNFC(std::string_view text);

// Lower case by Unicode's full mapping of each code point by itself, in no language: sigma is always U+03C3,
// and U+0130 becomes two code points. Stored blind indexes and `name_lower` columns depend on every detail of
// it.
std::string toLower(std::string_view text);

// The letters A to Z only.
char asciiLower(char c) noexcept;

// Without the white space (Unicode's White_Space, line breaks included) at both ends.
std::string_view trimmed(std::string_view text);

bool isWhiteSpace(char32_t codePoint) noexcept;

// The code points of a UTF-8 text one after the other.
class CodePoints {
public:
    explicit CodePoints(std::string_view text) noexcept : text_(text) {}

    bool atEnd() const noexcept { return next_ >= text_.size(); }

    // Byte offset of the code point that next() returns.
    std::size_t offset() const noexcept { return next_; }

    // Throws InvalidEncoding where the text is not UTF-8.
    char32_t next();

    // The same, with nothing for bytes that are not UTF-8.
    std::optional<char32_t> tryNext() noexcept;

private:
    std::string_view text_;
    std::size_t next_ = 0;
};

void appendUTF8(std::string& text, char32_t codePoint);

} // namespace KRCrypto
