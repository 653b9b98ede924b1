/// zprop: reads, edits and checks configuration files from the shell: stanza files, and properties
/// files in the manner of the Java platform.
#include "common/datadir.h"
#include "zprop/command_line.h"
#include "zprop/locale.h"
#include "zprop/memory.h"
#include "zprop/reports.h"

int main(int argc, char** argv) {
    zprop::keepFreedMemory();
    tools::useInstalledDataDirectory();
    zprop::useKnownCodeset();
    zprop::tellReports();
    return zprop::CommandLine::parseAndRun(argc, argv);
}
