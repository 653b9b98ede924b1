// Prints the checksum of each file, in the order of the command line; several files are read at a
// time.
//
//     checksums FILE...
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "Z/ZAdler32.h"
#include "Z/ZException.h"
#include "Z/ZWorkerPool.h"

namespace {

struct Checked {
    std::string path;
    unsigned long sum = 0;
};

void check(Checked& file) {
    std::ifstream in(file.path, std::ios::binary);
    if (!in) throw ZUnexpectedEndOfFile(file.path.c_str());
    std::string const bytes{std::istreambuf_iterator<char>(in), {}};
    file.sum = ZAdler32::adler32(1, reinterpret_cast<unsigned char const*>(bytes.data()),
                                 static_cast<unsigned int>(bytes.size()));
}

/// How many of the files could not be read.
unsigned long checkAll(std::vector<Checked>& files) {
    ZWorkerPool pool(4);
    for (Checked& file : files)
        pool.run([&file] { check(file); });  // each job writes what is its own: no lock
    pool.waitForAll();
    return pool.getFailureCount();  // the message service has reported each
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<Checked> files;
    for (int i = 1; i < argc; ++i)
        files.push_back({argv[i]});
    try {
        if (checkAll(files) != 0) return 1;
    } catch (ZException& e) {
        e.dumpException();
        return 1;
    }
    for (Checked const& file : files)
        std::cout << std::hex << std::setw(8) << std::setfill('0') << file.sum << ' ' << file.path
                  << "\n";
    return 0;
}
