/// The values that `zprop get` answers from: those of one file, or of several places, and where
/// each comes from.
#ifndef ZFC_TOOLS_ZPROP_READS_SOURCES_H
#define ZFC_TOOLS_ZPROP_READS_SOURCES_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Z/ZLayeredProperties.h"
#include "zprop/open.h"
#include "zprop/reads/read_commands.h"

namespace zprop {

class Sources {
  public:
    /// Reads the file, and what lies over it. Throws what these throw. A file alone is read even
    /// without its companion file; of several none is left out, as a program would leave none out.
    Sources(GetRequest const& asked, Deadline& deadline);

    [[nodiscard]] ZPropertiesInterface const& values() const;
    /// That of the one file.
    [[nodiscard]] std::optional<CompanionTrouble> const& trouble() const;
    /// For messages.
    [[nodiscard]] std::string name() const;
    /// Where each value of the key comes from, or the key where it has none: "FILE:LINE"; "FILE"
    /// for an obfuscated one, and when the file has changed since it was read; "$VARIABLE".
    [[nodiscard]] std::vector<std::string> placesOf(std::string const& stanza,
                                                    std::string const& key) const;

  private:
    [[nodiscard]] bool isVariable(std::string const& origin) const;

    GetRequest const& request;
    Properties file;                              // of one file; else null
    std::unique_ptr<ZLayeredProperties> layered;  // of several places; else null
};

}  // namespace zprop

#endif
