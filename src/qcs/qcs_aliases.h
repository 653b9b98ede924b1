/// The alias table of the codeset data directory.
///
/// The file "aliases" has one alias a line: `codeset ALIAS NAME` or `locale ALIAS NAME`, words
/// separated by blanks; "#" begins a comment. Lines of another form are passed over.
#ifndef QCS_QCS_ALIASES_H
#define QCS_QCS_ALIASES_H

#include <string>
#include <string_view>
#include <unordered_map>

namespace qcs {

/// A name as it is compared: letters and digits alone, letters in lower case.
std::string nameKey(std::string_view name);

class AliasTable {
  public:
    /// Reads the file; an empty table when it is no readable regular file of at most `maxFileSize`
    /// bytes. Does not wait.
    static AliasTable load(std::string const& path);

    /// The name that an alias stands for; empty when it is no alias.
    [[nodiscard]] std::string codeset(std::string_view alias) const;
    [[nodiscard]] std::string locale(std::string_view alias) const;

    static constexpr std::size_t maxFileSize = 256UL * 1024;

  private:
    void addLine(std::string_view line);

    std::unordered_map<std::string, std::string> codesets;
    std::unordered_map<std::string, std::string> locales;
};

}  // namespace qcs

#endif
