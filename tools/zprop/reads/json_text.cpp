#include "zprop/reads/json_text.h"

#include "Z/ZLCString.h"
#include "Z/ZUTF8String.h"
#include "zprop/shown.h"

namespace zprop {

Json JsonText::of(std::string const& local) {
    ZUTF8String const text{ZLCString(local.c_str())};
    // Text that the local codeset does not have may still be UTF-8.
    bool const isConverted = !text.isEmpty() || local.empty();
    return wellFormed(isConverted ? text.getChars() : local);
}

Json JsonText::of(std::vector<std::string> const& texts) {
    Json list = Json::array();
    for (auto const& text : texts)
        list.push_back(of(text));
    return list;
}

std::string JsonText::wellFormed(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        std::size_t const length = utf8Length(text);
        replaced |= length == 0;
        result += length == 0 ? std::string_view("\xEF\xBF\xBD") : text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return result;
}

}  // namespace zprop
