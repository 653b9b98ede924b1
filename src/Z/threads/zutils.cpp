#include "Z/zutils.h"

#include <algorithm>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/threads/forked_child.h"

namespace {

constexpr int lineSize = 16;

/// The blank in front of each half of a line.
void writeGap(FILE* out, int column) {
    if (column % (lineSize / 2) == 0) fputc(' ', out);
}

void writeBytes(FILE* out, unsigned char const* line, int count) {
    for (int column = 0; column < lineSize; ++column) {
        writeGap(out, column);
        if (column < count)
            fprintf(out, " %02x", line[column]);
        else
            fputs("   ", out);
    }
}

void writeText(FILE* out, unsigned char const* line, int count) {
    fputs("  *", out);
    for (int column = 0; column < count; ++column) {
        // Kept: what shows such a dump knows the codeset of the bytes, so all but controls are
        // shown.
        bool const isShown = line[column] >= 32 && line[column] <= 253;
        fputc(isShown ? line[column] : '.', out);
    }
    fputc('*', out);
}

void dump(FILE* out, int length, unsigned char const* data, char const* title) {
    if (title != nullptr) fprintf(out, "\n\t%s\n", title);
    for (int offset = 0; length > 0; offset += lineSize, length -= lineSize) {
        int const count = std::min(length, lineSize);
        fprintf(out, "\n%4.4x ", static_cast<unsigned>(offset));
        writeBytes(out, data + offset, count);
        writeText(out, data + offset, count);
    }
    fputc('\n', out);
}

}  // namespace

void zhex_dump(FILE* out, int length, unsigned char const* data, char const* title) try {
    ZResourceLock const guard(ZForkedChild::own(ZOwnLock::hexDump));
    dump(out != nullptr ? out : stderr, data != nullptr ? length : 0, data, title);
} catch (ZException& e) {  // out of memory, or the lock failed
    zreportException(e);
}
