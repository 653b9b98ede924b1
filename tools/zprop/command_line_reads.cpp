/// The commands that only read: get, list, names, dump, diff and check.
#include "zprop/command_line.h"
#include "zprop/java/commands.h"

namespace zprop {

Exit CommandLine::runGet(Deadline& deadline) {
    auto const place = takeWords(2);
    getRequest.file = file;
    getRequest.stanza = place[0];
    getRequest.key = place[1];
    if (!isJava()) return get(getRequest, deadline);
    if (getRequest.all || getRequest.reveal || getRequest.type != ValueType::string)
        requireStanzaFile("--all, --reveal or --type");
    if (getRequest.origin || getRequest.isLayered())
        requireStanzaFile("--origin, --layer or --env");
    return getJava(getRequest, encoding(), deadline);
}

Exit CommandLine::runList(Deadline& deadline) {
    listRequest.file = file;
    if (!listRequest.stanza.empty()) requireStanzaFile("STANZA");
    return isJava() ? listJava(javaName(), listRequest.style, deadline)
                    : list(listRequest, deadline);
}

Exit CommandLine::runNames(Deadline& deadline) {
    listRequest.file = file;
    if (!listRequest.stanza.empty()) requireStanzaFile("STANZA");
    return isJava() ? namesJava(javaName(), listRequest.style, deadline)
                    : names(listRequest, deadline);
}

Exit CommandLine::runDump(Deadline& deadline) {
    dumpRequest.file = file;
    if (dumpRequest.json && dumpRequest.style != Style::lines)
        throw Failure(Exit::wrongUsage, "--json goes without --null and --shell");
    if (!isJava()) return dump(dumpRequest, deadline);
    return dumpRequest.json ? dumpJavaAsJson(javaName(), deadline)
                            : listJava(javaName(), dumpRequest.style, deadline);
}

Exit CommandLine::runDiff(Deadline& deadline) {
    requireSameFormat();
    if (isJava()) return diffJava(javaName(), {otherFile, encoding()}, deadline);
    diffRequest.from = file;
    diffRequest.to = otherFile;
    return diff(diffRequest, deadline);
}

Exit CommandLine::runCheck(Deadline&) { return check(files, format, waitSeconds, encoding()); }

}  // namespace zprop
