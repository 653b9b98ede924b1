/// The commands that only read: get, list, dump and check.
#include "zprop/command_line.h"
#include "zprop/java_commands.h"

namespace zprop {

void CommandLine::declareGet(CLI::App& command) {
    addFile(command);
    addStanzaAndKey(command);
    auto* const all =
        command.add_flag("--all", getRequest.all, "every value, one a line, instead of the last");
    command.add_option("--type", getRequest.type, "check and print as string, int or bool")
        ->transform(
            CLI::CheckedTransformer(std::map<std::string, ValueType>{{"string", ValueType::string},
                                                                     {"int", ValueType::integer},
                                                                     {"bool", ValueType::boolean}}))
        ->excludes(all);
    command.add_option("--default", getRequest.fallback, "printed when there is no value");
    command.add_flag("--reveal", getRequest.reveal, "show obfuscated values");
}

Exit CommandLine::runGet(Deadline& deadline) {
    auto const place = takeWords(2);
    getRequest.file = file;
    getRequest.stanza = place[0];
    getRequest.key = place[1];
    if (!isJava()) return get(getRequest, deadline);
    if (getRequest.all || getRequest.reveal || getRequest.type != ValueType::string)
        requireStanzaFile("--all, --reveal or --type");
    return getJava(file, getRequest.key, getRequest.fallback, deadline);
}

void CommandLine::declareList(CLI::App& command) {
    addFile(command);
    requireText(command.add_option("STANZA", stanza, "this stanza alone"));
}

Exit CommandLine::runList(Deadline& deadline) {
    if (!stanza.empty()) requireStanzaFile("STANZA");
    return isJava() ? listJava(file, deadline) : list(file, stanza, deadline);
}

void CommandLine::declareDump(CLI::App& command) {
    addFile(command);
    command.add_flag("--json", dumpRequest.json, "as JSON");
    command.add_flag("--reveal", dumpRequest.reveal, "show obfuscated values");
}

Exit CommandLine::runDump(Deadline& deadline) {
    dumpRequest.file = file;
    if (!isJava()) return dump(dumpRequest, deadline);
    return dumpRequest.json ? dumpJavaAsJson(file, deadline) : listJava(file, deadline);
}

void CommandLine::declareCheck(CLI::App& command) {
    command.add_option("FILE", files, "files")->required();
}

Exit CommandLine::runCheck(Deadline&) { return check(files, format, waitSeconds); }

}  // namespace zprop
