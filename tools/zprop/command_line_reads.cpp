/// The commands that only read: get, list, names, dump, diff and check.
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
    auto* const fallback =
        command.add_option("--default", getRequest.fallback, "printed when there is no value");
    command.add_flag("--required", getRequest.required, "a key without a value is an error")
        ->excludes(fallback);
    command.add_flag("--reveal", getRequest.reveal, "show obfuscated values");
    addStyles(command, getRequest.style);
}

Exit CommandLine::runGet(Deadline& deadline) {
    auto const place = takeWords(2);
    getRequest.file = file;
    getRequest.stanza = place[0];
    getRequest.key = place[1];
    if (!isJava()) return get(getRequest, deadline);
    if (getRequest.all || getRequest.reveal || getRequest.type != ValueType::string)
        requireStanzaFile("--all, --reveal or --type");
    return getJava(getRequest, encoding(), deadline);
}

void CommandLine::declareList(CLI::App& command) {
    addFile(command);
    requireText(command.add_option("STANZA", listRequest.stanza, "this stanza alone"));
    addStyles(command, listRequest.style);
}

Exit CommandLine::runList(Deadline& deadline) {
    listRequest.file = file;
    if (!listRequest.stanza.empty()) requireStanzaFile("STANZA");
    return isJava() ? listJava(javaName(), listRequest.style, deadline)
                    : list(listRequest, deadline);
}

void CommandLine::declareNames(CLI::App& command) {
    addFile(command);
    requireText(command.add_option("STANZA", listRequest.stanza, "the keys of this stanza"));
    addStyles(command, listRequest.style);
}

Exit CommandLine::runNames(Deadline& deadline) {
    listRequest.file = file;
    if (!listRequest.stanza.empty()) requireStanzaFile("STANZA");
    return isJava() ? namesJava(javaName(), listRequest.style, deadline)
                    : names(listRequest, deadline);
}

void CommandLine::declareDump(CLI::App& command) {
    addFile(command);
    command.add_flag("--json", dumpRequest.json, "as JSON");
    command.add_flag("--reveal", dumpRequest.reveal, "show obfuscated values");
    addStyles(command, dumpRequest.style);
}

Exit CommandLine::runDump(Deadline& deadline) {
    dumpRequest.file = file;
    if (dumpRequest.json && dumpRequest.style != Style::lines)
        throw Failure(Exit::wrongUsage, "--json goes without --null and --shell");
    if (!isJava()) return dump(dumpRequest, deadline);
    return dumpRequest.json ? dumpJavaAsJson(javaName(), deadline)
                            : listJava(javaName(), dumpRequest.style, deadline);
}

void CommandLine::declareDiff(CLI::App& command) {
    requireText(command.add_option("FILE", file, "stanza or .properties file"))->required();
    requireText(command.add_option("OTHER", otherFile, "file of the same format"))->required();
    command.add_flag("--reveal", diffRequest.reveal, "show obfuscated values");
}

Exit CommandLine::runDiff(Deadline& deadline) {
    requireSameFormat();
    if (isJava()) return diffJava(javaName(), {otherFile, encoding()}, deadline);
    diffRequest.from = file;
    diffRequest.to = otherFile;
    return diff(diffRequest, deadline);
}

void CommandLine::addStyles(CLI::App& command, Style& style) {
    auto* const nul = command.add_flag_callback(
        "-z,--null", [&style] { style = Style::nul; }, "a NUL behind each answer, for xargs -0");
    command
        .add_flag_callback(
            "--shell", [&style] { style = Style::shell; }, "as words or assignments of a shell")
        ->excludes(nul);
}

void CommandLine::declareCheck(CLI::App& command) {
    command.add_option("FILE", files, "files")->required();
}

Exit CommandLine::runCheck(Deadline&) { return check(files, format, waitSeconds, encoding()); }

}  // namespace zprop
