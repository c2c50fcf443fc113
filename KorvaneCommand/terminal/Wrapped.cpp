#include "KorvaneCommand/terminal/Wrapped.hpp"

#include <sstream>

namespace Korvane {

std::string wrapped(const std::string& text, std::size_t indent) {
    constexpr std::size_t lineWidth = 80;
    std::istringstream words(text);
    std::string result;
    auto column = indent;
    for (std::string word; words >> word;) {
        if (column > indent && column + 1 + word.size() > lineWidth) {
            result += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (column > indent) {
            result += " ";
            ++column;
        }
        result += word;
        column += word.size();
    }
    return result + "\n";
}

} // namespace Korvane
