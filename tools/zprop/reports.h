/// What the library reports without failing, in the tool's own words.
#ifndef ZFC_TOOLS_ZPROP_REPORTS_H
#define ZFC_TOOLS_ZPROP_REPORTS_H

namespace zprop {

/// From now on each exception that the library reports is a warning, as the tool tells it.
void tellReports();

}  // namespace zprop

#endif
