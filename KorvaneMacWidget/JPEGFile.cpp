#include "KorvaneMacWidget/JPEGFile.hpp"

#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <cstdint>

namespace Korvane {

namespace {

constexpr std::string_view startOfImage = "\xFF\xD8";
constexpr std::string_view endOfImage = "\xFF\xD9";
constexpr std::uint8_t startOfScan = 0xDA;

std::uint8_t byteAt(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint8_t>(bytes[at]);
}

std::uint16_t numberAt(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint16_t>(byteAt(bytes, at) << 8 | byteAt(bytes, at + 1));
}

bool isStartOfFrame(std::uint8_t marker) {
    // C4, C8 and CC in this range mark tables and an extension.
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

/// A frame header holds a precision, then height and width; a height of 0 would be told only after the scan.
bool hasSize(std::string_view frame) {
    return frame.size() >= 5 && numberAt(frame, 1) > 0 && numberAt(frame, 3) > 0;
}

} // namespace

bool isJPEG(std::string_view bytes) noexcept {
    if (!bytes.starts_with(startOfImage))
        return false;
    bytes.remove_prefix(startOfImage.size());
    bool sized = false;
    while (bytes.size() >= 4 && byteAt(bytes, 0) == 0xFF) {
        const auto marker = byteAt(bytes, 1);
        if (marker == 0xFF) { // fill byte
            bytes.remove_prefix(1);
            continue;
        }
        if (marker == startOfScan)
            return sized && bytes.find(endOfImage) != std::string_view::npos;
        const std::size_t length = numberAt(bytes, 2); // counts its own two bytes
        if (length < 2 || bytes.size() < 2 + length)
            return false;
        if (isStartOfFrame(marker))
            sized = hasSize(bytes.substr(4, length - 2));
        bytes.remove_prefix(2 + length);
    }
    return false;
}

bool isJPEGFile(const std::filesystem::path& file, std::size_t maxSize) noexcept {
    try {
        return !std::filesystem::is_symlink(file) && isJPEG(readFile(file, maxSize));
    } catch (const std::exception& error) {
        Log::info("widget", error.what());
        return false;
    }
}

} // namespace Korvane
