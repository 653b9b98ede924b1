/// From a stanza file to a properties file in the manner of the Java platform, and back.
#ifndef ZFC_TOOLS_ZPROP_JAVA_CONVERT_H
#define ZFC_TOOLS_ZPROP_JAVA_CONVERT_H

#include <string>

#include "zprop/failure.h"
#include "zprop/format.h"
#include "zprop/java/file.h"
#include "zprop/open.h"

namespace zprop {

struct ConvertRequest {
    std::string source;
    std::string target;            // must not be there yet
    std::string stanza;            // holds all keys; empty: the key "a.b" is "b" of stanza "a"
    bool dropComments = false;     // comments are no loss
    Format from = Format::stanza;  // of the source
    bool isFormatGiven = false;    // the target's ending may say another one than it gets
    Encoding encoding = Encoding::utf8;  // of the properties file
};

/// Writes the target in the other format, with the permissions of the source. When something would
/// be lost, each loss is a line on standard error, and nothing is written.
Exit convert(ConvertRequest const& request, Deadline& deadline);

}  // namespace zprop

#endif
