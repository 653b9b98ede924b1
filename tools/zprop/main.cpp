/// zprop: reads, edits and checks configuration files from the shell: stanza files, and properties
/// files in the manner of the Java platform.
#include <malloc.h>

#include "common/datadir.h"
#include "zprop/command_line.h"
#include "zprop/locale.h"
#include "zprop/reports.h"

namespace {

/// What is freed serves the next step; to give it back and to get it again, page by page, would
/// take longer than to use it.
void keepFreedMemory() {
    constexpr int largest = 16 << 20;  // of a block that is reused
    static_cast<void>(mallopt(M_MMAP_THRESHOLD, largest));
    static_cast<void>(mallopt(M_TRIM_THRESHOLD, 2 * largest));
}

}  // namespace

int main(int argc, char** argv) {
    keepFreedMemory();
    tools::useInstalledDataDirectory();
    zprop::useKnownCodeset();
    zprop::tellReports();
    return zprop::CommandLine().parseAndRun(argc, argv);
}
