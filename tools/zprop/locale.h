/// The locale that zprop works in.
#ifndef ZFC_TOOLS_ZPROP_LOCALE_H
#define ZFC_TOOLS_ZPROP_LOCALE_H

namespace zprop {

/// Gives the library a codeset that it knows, before it is asked for the first string: in the
/// environment of a cron job there is none but ASCII, and one that is not known would end the
/// process. UTF-8 takes the place of either; what the terminal cannot show is then escaped. Warns
/// on standard error about one that is not known. Called once, in a process without threads.
void useKnownCodeset();

}  // namespace zprop

#endif
