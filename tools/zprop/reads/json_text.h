/// Text as JSON has it.
#ifndef ZFC_TOOLS_ZPROP_READS_JSON_TEXT_H
#define ZFC_TOOLS_ZPROP_READS_JSON_TEXT_H

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace zprop {

using Json = nlohmann::ordered_json;

/// Text for JSON, which knows UTF-8 alone: bytes that are none become U+FFFD.
class JsonText {
  public:
    [[nodiscard]] Json of(std::string const& local);
    [[nodiscard]] Json of(std::vector<std::string> const& texts);
    [[nodiscard]] bool hasReplaced() const { return replaced; }

  private:
    [[nodiscard]] std::string wellFormed(std::string_view text);

    bool replaced = false;
};

}  // namespace zprop

#endif
