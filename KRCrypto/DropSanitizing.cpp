#include "KRCrypto/DropCrypto.hpp"
#include "KRCrypto/FileExtension.hpp"
#include "KRCrypto/UnicodeText.hpp"

#include <algorithm>
#include <optional>

namespace KRCrypto::DropCrypto {

namespace {

constexpr std::size_t mostNameBytes = 255;
constexpr std::size_t mostMimeBytes = 127;
constexpr std::string_view nameless = "file";
constexpr std::string_view unknownMime = "application/octet-stream";

// General category Cc.
bool isControl(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c <= 0x9F);
}

bool isSeparator(char32_t c) {
    return c == U'/' || c == U'\\';
}

// Composed before or after is the same, except for marks that come to stand behind a letter: they join it.
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
    std::optional<std::size_t> start;
    std::size_t end = 0;
    for (CodePoints points(name); !points.atEnd();) {
        const std::size_t at = points.offset();
        const char32_t c = points.next();
        if (isWhiteSpace(c)) {
            continue;
        }
        start = start.value_or(at);
        end = c == U'.' ? end : points.offset();
    }
    return end == 0 ? std::string_view{} : name.substr(*start, end - *start);
}

std::string shortened(std::string_view name) {
    if (name.size() <= mostNameBytes) {
        return std::string(name);
    }
    const std::string_view extension = extensionOf(name);
    if (extension.empty()) {
        return std::string(bare(startOf(name, mostNameBytes)));
    }
    const std::string_view stem = name.substr(0, name.size() - extension.size());
    return std::string(startOf(stem, mostNameBytes - extension.size())).append(extension);
}

bool isToken(std::string_view text) {
    static constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::ranges::all_of(text, [](char c) {
        const char lower = asciiLower(c);
        return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') ||
               marks.find(c) != std::string_view::npos;
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
    const std::string kept = composedWithout(name, [](char32_t c) { return isControl(c) || isSeparator(c); });
    std::string clean = shortened(bare(kept));
    if (clean.empty()) { // as "." and ".." are by now
        clean = nameless;
    }
    return clean;
}

std::string sanitizeMime(std::string_view mime) {
    const std::size_t slash = mime.find('/');
    if (mime.size() > mostMimeBytes || slash == std::string_view::npos || !isToken(mime.substr(0, slash)) ||
        !isToken(mime.substr(slash + 1))) {
        return std::string(unknownMime);
    }
    std::string lower(mime);
    std::ranges::transform(lower, lower.begin(), asciiLower);
    return lower;
}

std::string sanitizeLabel(std::string_view label) {
    const std::string kept = composedWithout(label, isControl);
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
