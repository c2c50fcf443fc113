#include "KRCrypto/DropCrypto.hpp"
#include "KRCrypto/UnicodeText.hpp"

#include <algorithm>

namespace KRCrypto::DropCrypto {

namespace {

constexpr std::size_t mostNameBytes = 255;
constexpr std::size_t mostMimeBytes = 127;
constexpr std::string_view nameless = "file";
constexpr std::string_view unknownMime = "application/octet-stream";

// Control characters, line separators, and what turns the direction of writing, by which a name could hide
// its extension.
bool isDeceptive(char32_t c) {
    const auto within = [c](char32_t first, char32_t last) { return c >= first && c <= last; };
    return c < 0x20 || within(0x7F, 0x9F) || c == 0x061C || within(0x200E, 0x200F) ||
           within(0x2028, 0x202E) || within(0x2066, 0x2069);
}

bool isSeparator(char32_t c) {
    return c == U'/' || c == U'\\';
}

template <class Unwanted>
std::string composedWithout(std::string_view text, Unwanted unwanted) {
    std::string kept;
    kept.reserve(text.size());
    for (CodePoints points(text); !points.atEnd();) {
        const char32_t c = points.next();
        if (!unwanted(c)) {
            appendUTF8(kept, c);
        }
    }
    return toNFC(kept);
}

// Without white space at the ends and dots at the end.
std::string_view bare(std::string_view name) {
    std::string_view before;
    do {
        before = name;
        name = trimmed(name);
        while (name.ends_with('.')) {
            name.remove_suffix(1);
        }
    } while (name != before);
    return name;
}

// The longest start of at most `bytes` bytes that ends between code points.
std::string_view cut(std::string_view text, std::size_t bytes) {
    if (text.size() <= bytes) {
        return text;
    }
    while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0U) == 0x80U) {
        --bytes;
    }
    return text.substr(0, bytes);
}

// The extension stays as long as it leaves room for a character before it.
std::string shortened(std::string_view name) {
    constexpr std::size_t longestCharacter = 4;
    if (name.size() <= mostNameBytes) {
        return std::string(name);
    }
    const std::size_t dot = name.rfind('.');
    const std::string_view extension =
        dot == std::string_view::npos || dot == 0 ? std::string_view{} : name.substr(dot);
    if (extension.empty() || extension.size() > mostNameBytes - longestCharacter) {
        return std::string(bare(cut(name, mostNameBytes)));
    }
    return std::string(cut(name.substr(0, dot), mostNameBytes - extension.size())).append(extension);
}

bool isToken(std::string_view text) {
    static constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::ranges::all_of(text, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || marks.find(c) != std::string_view::npos;
    });
}

bool matches(std::string_view text, std::string_view pattern) {
    return std::ranges::equal(text, pattern,
                              [](char c, char p) { return p == '0' ? c >= '0' && c <= '9' : c == p; });
}

// ^\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2}(\.\d{1,3})?Z$
bool isTime(std::string_view text) {
    static constexpr std::string_view pattern = "0000-00-00T00:00:00";
    static constexpr std::string_view decimals = ".000";
    if (!text.ends_with('Z') || text.size() <= pattern.size()) {
        return false;
    }
    const std::string_view rest = text.substr(pattern.size(), text.size() - pattern.size() - 1);
    return matches(text.substr(0, pattern.size()), pattern) &&
           (rest.empty() || (rest.size() >= 2 && rest.size() <= decimals.size() &&
                             matches(rest, decimals.substr(0, rest.size()))));
}

} // namespace

std::string sanitizeName(std::string_view name) {
    const std::string kept =
        composedWithout(name, [](char32_t c) { return isDeceptive(c) || isSeparator(c); });
    std::string clean = shortened(bare(kept));
    if (clean.empty()) { // as "." and ".." are by now
        clean = nameless;
    }
    return clean;
}

std::string sanitizeMime(std::string_view mime) {
    const std::string lower = toLower(mime);
    const std::size_t slash = lower.find('/');
    const bool usable = lower.size() <= mostMimeBytes && slash != std::string::npos &&
                        isToken(std::string_view(lower).substr(0, slash)) &&
                        isToken(std::string_view(lower).substr(slash + 1));
    return usable ? lower : std::string(unknownMime);
}

std::string sanitizeLabel(std::string_view label) {
    const std::string kept = composedWithout(label, isDeceptive);
    const std::string_view clean = trimmed(kept);
    CodePoints points(clean);
    for (std::size_t seen = 0; seen < labelMax && !points.atEnd(); ++seen) {
        points.next();
    }
    return std::string(trimmed(clean.substr(0, points.offset())));
}

FileMeta sanitizeMeta(const FileMeta& meta) {
    FileMeta clean = meta;
    clean.name = sanitizeName(meta.name);
    clean.mime = sanitizeMime(meta.mime);
    if (clean.mtime && !isTime(*clean.mtime)) {
        clean.mtime.reset();
    }
    return clean;
}

} // namespace KRCrypto::DropCrypto
