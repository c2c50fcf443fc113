// korvane-plaintext-search FOLDER DATA [--known COPY]: looks for names and contents of FOLDER's files in
// every file below DATA, as they are and as Base64. Exits with 1 when it finds one.
#include "KorvaneCore/json/KRJSON.hpp"

#include <CLI/CLI.hpp>
#include <boost/describe/class.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace {

namespace fs = std::filesystem;

__extension__ using Window = unsigned __int128;
constexpr std::size_t blockSize = sizeof(Window);
constexpr std::size_t shortestName = 6;
constexpr int nothingToSearchFor = 3; ///< the exit code
constexpr std::size_t mostBlocks = std::size_t{1} << 24;
constexpr int fewestDistinctBytes = 8; ///< a block of fewer is padding, which says nothing about a file

struct WindowHash {
    std::size_t operator()(Window window) const noexcept {
        const auto folded = static_cast<std::uint64_t>(window) ^ static_cast<std::uint64_t>(window >> 64U);
        return folded * 0x9E3779B97F4A7C15U >> 16U;
    }
};

struct Report {
    std::size_t names = 0;
    std::size_t blocks = 0;
    std::size_t shortNames = 0; ///< not searched for, as they occur by chance
    std::size_t smallFiles = 0; ///< files with content and no block to search for, likewise
    std::size_t searchedFiles = 0;
    std::uint64_t searchedBytes = 0;
    std::size_t known = 0; ///< of the names and blocks above, left out because they were there before
    std::vector<std::string> found;
};
BOOST_DESCRIBE_STRUCT(Report, (),
                      (names, blocks, shortNames, smallFiles, searchedFiles, searchedBytes, known, found))

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string content(static_cast<std::size_t>(fs::file_size(path)), '\0');
    if (!file.read(content.data(), static_cast<std::streamsize>(content.size())))
        throw std::runtime_error("cannot read " + path.string());
    return content;
}

template <class Act>
void forEachFile(const fs::path& folder, Act act) {
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file() && !entry.is_symlink())
            act(entry.path());
}

Window windowAt(std::string_view bytes) {
    Window window = 0;
    for (const auto byte : bytes.substr(0, blockSize))
        window = window << 8U | static_cast<unsigned char>(byte);
    return window;
}

bool saysSomething(std::string_view block) {
    return std::set<char>(block.begin(), block.end()).size() >= fewestDistinctBytes;
}

/// The value of each character of Base64, in either alphabet; -1 for the others.
constexpr auto base64Values = [] {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    std::array<int, 256> values{};
    values.fill(-1);
    for (std::size_t index = 0; index < digits.size(); ++index)
        values.at(static_cast<unsigned char>(digits[index])) = static_cast<int>(index);
    values['+'] = values['-'] = 62;
    values['/'] = values['_'] = 63;
    return values;
}();

int base64Value(char byte) {
    return base64Values.at(static_cast<unsigned char>(byte));
}

/// The whole bytes that the characters of Base64 stand for.
std::string base64Decoded(std::string_view text) {
    std::string decoded;
    unsigned bits = 0;
    for (std::size_t index = 0; index < text.size(); ++index) {
        bits = bits << 6U | static_cast<unsigned>(base64Value(text[index]));
        if (index % 4 != 0)
            decoded += static_cast<char>(bits >> (6 - index % 4 * 2) & 0xFFU);
    }
    return decoded;
}

/// Calls act(decoded) for every run of Base64 characters that is long enough for a name. Where in it an
/// encoding begins is not known, so each is decoded from its first four characters on.
template <class Act>
void forEachBase64(std::string_view content, Act act) {
    constexpr std::size_t shortestRun = shortestName * 8 / 6;
    for (std::size_t begin = 0; begin < content.size();) {
        auto end = begin;
        while (end < content.size() && base64Value(content[end]) >= 0)
            ++end;
        for (std::size_t skipped = 0; skipped < 4 && begin + skipped + shortestRun <= end; ++skipped)
            act(base64Decoded(content.substr(begin + skipped, end - begin - skipped)));
        begin = end + 1;
    }
}

/// What must not occur: names of at least six bytes, and the files' bytes in blocks of 16.
class Plaintext {
public:
    explicit Plaintext(const fs::path& folder) {
        std::uint64_t total = 0;
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            auto name = entry.path().filename().string();
            (name.size() >= shortestName ? names_ : shortNames_).insert(std::move(name));
            if (entry.is_regular_file() && !entry.is_symlink())
                total += entry.file_size();
        }
        // All blocks of a folder of ordinary size, evenly spread ones of a larger.
        const auto step = blockSize * (1 + total / blockSize / mostBlocks);
        forEachFile(folder, [&](const fs::path& path) { addBlocks(contentOf(path), step); });
        for (const auto& name : names_)
            namesAt_.emplace(prefixOf(windowAt(name.substr(0, shortestName))), name);
    }

    /// Calls found(text) for every name and block that occurs in the content.
    template <class Found>
    void search(std::string_view content, Found found) const {
        searchBytes(content, found);
        forEachBase64(content, [&](const std::string& decoded) { searchBytes(decoded, found); });
    }

    void forget(const std::set<std::string, std::less<>>& texts) {
        for (const auto& text : texts) {
            if (text.size() == blockSize)
                blocks_.erase(windowAt(text));
            std::erase_if(namesAt_, [&](const auto& entry) { return entry.second == text; });
            names_.erase(text);
        }
    }

    [[nodiscard]] std::size_t names() const { return names_.size(); }

    [[nodiscard]] std::size_t blocks() const { return blocks_.size(); }

    [[nodiscard]] std::size_t shortNames() const { return shortNames_.size(); }

    [[nodiscard]] std::size_t smallFiles() const { return smallFiles_; }

private:
    static std::uint64_t prefixOf(Window window) {
        return static_cast<std::uint64_t>(window) & ((std::uint64_t{1} << 8U * shortestName) - 1);
    }

    void addBlocks(std::string_view content, std::size_t step) {
        bool isSearched = content.empty();
        for (std::size_t at = 0; at + blockSize <= content.size(); at += step) {
            if (const auto block = content.substr(at, blockSize); saysSomething(block)) {
                blocks_.insert(windowAt(block));
                isSearched = true;
            }
        }
        smallFiles_ += isSearched ? 0 : 1;
    }

    template <class Found>
    void searchBytes(std::string_view content, Found& found) const {
        Window window = 0;
        for (std::size_t end = 1; end <= content.size(); ++end) {
            window = window << 8U | static_cast<unsigned char>(content[end - 1]);
            if (end >= blockSize && blocks_.contains(window))
                found(content.substr(end - blockSize, blockSize));
            if (end >= shortestName)
                searchName(content.substr(end - shortestName), prefixOf(window), found);
        }
    }

    template <class Found>
    void searchName(std::string_view rest, std::uint64_t prefix, Found& found) const {
        const auto [first, last] = namesAt_.equal_range(prefix);
        for (auto entry = first; entry != last; ++entry)
            if (rest.starts_with(entry->second))
                found(entry->second);
    }

    std::unordered_set<Window, WindowHash> blocks_;
    std::size_t smallFiles_ = 0;
    std::set<std::string, std::less<>> names_;
    std::set<std::string, std::less<>> shortNames_;
    std::unordered_multimap<std::uint64_t, std::string> namesAt_; ///< by their first six bytes
};

std::string shown(std::string_view text) {
    std::string result;
    for (const auto byte : text)
        result += byte >= ' ' && byte <= '~' ? std::string(1, byte)
                                             : fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
    return result;
}

Report searchAll(Plaintext& plaintext, const fs::path& data, const fs::path& known) {
    Report report;
    report.names = plaintext.names();
    report.blocks = plaintext.blocks();
    report.shortNames = plaintext.shortNames();
    report.smallFiles = plaintext.smallFiles();
    if (!known.empty()) {
        std::set<std::string, std::less<>> before;
        forEachFile(known, [&](const fs::path& path) {
            plaintext.search(contentOf(path), [&](std::string_view text) { before.emplace(text); });
        });
        plaintext.forget(before);
        report.known = before.size();
    }
    forEachFile(data, [&](const fs::path& path) {
        const auto content = contentOf(path);
        ++report.searchedFiles;
        report.searchedBytes += content.size();
        const auto relative = fs::relative(path, data).string();
        plaintext.search(content, [&](std::string_view text) {
            report.found.push_back(fmt::format("{}: \"{}\"", relative, shown(text)));
        });
        plaintext.search(relative, [&](std::string_view text) {
            report.found.push_back(fmt::format("{}: named \"{}\"", relative, shown(text)));
        });
    });
    return report;
}

} // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app("Looks for names and contents of a folder's files in other files.\n"
                     "Exit codes: 0 none found, 1 found or failed, 2 wrong usage, 3 nothing to search for.");
        fs::path folder;
        fs::path data;
        fs::path known;
        app.add_option("FOLDER", folder, "What must not be found")->required()->check(CLI::ExistingDirectory);
        app.add_option("DATA", data, "Where it must not be found")->required()->check(CLI::ExistingDirectory);
        app.add_option("--known", known, "An earlier state of DATA; what was there already does not count")
            ->check(CLI::ExistingDirectory);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app.exit(error) == 0 ? 0 : 2;
        }
        Plaintext plaintext(folder);
        const auto report = searchAll(plaintext, data, known);
        fmt::print("{}\n", Korvane::KRJSON::write(report));
        if (!report.found.empty())
            return 1;
        return plaintext.names() + plaintext.blocks() == 0 ? nothingToSearchFor : 0;
    } catch (const std::exception& error) {
        fmt::print(stderr, "korvane-plaintext-search: {}\n", error.what());
        return 1;
    }
}
