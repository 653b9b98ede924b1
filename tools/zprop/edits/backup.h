/// The copy of a file that is made before an edit.
#ifndef ZFC_TOOLS_ZPROP_EDITS_BACKUP_H
#define ZFC_TOOLS_ZPROP_EDITS_BACKUP_H

#include <string>

namespace zprop {

/// Copies `file` to the same name with `ending` behind it; a copy that is there already is replaced
/// whole. It has the owner, group and permissions of the file, or fewer permissions: none that
/// `main`, whose companion the file is, does not have. Nothing is done for a file that is missing
/// or has no byte. Throws Failure.
void makeBackup(std::string const& file, std::string const& ending, std::string const& main);

}  // namespace zprop

#endif
