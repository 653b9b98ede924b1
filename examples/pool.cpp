// Counts words in several texts at a time, on the threads of a pool.
#include <array>
#include <iostream>
#include <sstream>
#include <string>

#include "Z/ZWorkerPool.h"

namespace {

struct Text {
    std::string text;
    int words = 0;
};

void count(Text& text) {
    std::istringstream in(text.text);
    for (std::string word; in >> word;)
        ++text.words;
}

}  // namespace

int main() {
    std::array<Text, 3> texts{{{"one"}, {"one two"}, {"one two three"}}};
    // [jobs]
    ZWorkerPool pool(2);  // two threads, from here to the end of the scope
    for (Text& text : texts)
        pool.run([&text] { count(text); });  // each job writes what is its own: no lock
    pool.waitForAll();                       // all are done; the pool goes on
    // [/jobs]
    for (Text const& text : texts)
        std::cout << text.words << "\n";
    return pool.getFailureCount() == 0 ? 0 : 1;
}
