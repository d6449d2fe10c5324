#include "text/text_lists.h"

#include <algorithm>
#include <cstddef>

namespace KelmoraID {

std::vector<WideString> multiStringToList(const WideString& multiString) {
    std::vector<WideString> list;
    auto begin = multiString.begin();
    while (begin != multiString.end()) {
        const auto end = std::find(begin, multiString.end(), WCHAR{});
        if (end == begin) break;
        list.emplace_back(begin, end);
        begin = end == multiString.end() ? end : end + 1;
    }
    return list;
}

std::vector<std::string> splitString(const std::string& text, char delimiter) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find(delimiter, begin), text.size());
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

std::string joinStrings(const std::vector<std::string>& parts, const std::string& separator) {
    std::string text = parts.front();
    for (auto part = parts.begin() + 1; part != parts.end(); ++part) text += separator + *part;
    return text;
}

void trimBlanks(std::string& text) {
    static constexpr const char* blanks = " \t\n\v\f\r";
    text.erase(0, text.find_first_not_of(blanks));
    text.erase(text.find_last_not_of(blanks) + 1);
}

}  // namespace KelmoraID
