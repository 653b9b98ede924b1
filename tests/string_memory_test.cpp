// link: static
// wrap: malloc,realloc
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "support/strings.h"

namespace {

/// From this size on there is no memory; 0: there always is.
std::size_t refusedSize = 0;

bool refuses(std::size_t size) { return refusedSize != 0 && size >= refusedSize; }

}  // namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_realloc(void* block, std::size_t size);

void* __wrap_malloc(std::size_t size) { return refuses(size) ? nullptr : __real_malloc(size); }
void* __wrap_realloc(void* block, std::size_t size) {
    return refuses(size) ? nullptr : __real_realloc(block, size);
}
}

namespace {

using testsupport::bytesOf;
using testsupport::checkString;

TEST(StringMemoryTest, KeepsItsTextWhenThereIsNoMemory) {
    std::string const big(6000, 'b');
    std::vector<std::function<void(ZLCString&)>> const edits = {
        [&](ZLCString& s) { s.append(big.c_str()); },
        [&](ZLCString& s) { s.insert(1, big.c_str()); },
        [&](ZLCString& s) { s.setCapacity(6000); },
        [&](ZLCString& s) { s.replace("a", big.c_str()); },
        [&](ZLCString& s) { s.replaceOther("x", big.c_str()); },
    };
    for (auto const& edit : edits) {
        for (std::string const& before : {std::string("abc"), std::string(200, 'a')}) {
            SCOPED_TRACE(&edit - edits.data());
            ZLCString string(before.c_str());
            auto const capacity = string.getCapacity();
            refusedSize = 5000;
            EXPECT_THROW(edit(string), ZOutOfMemoryException);
            string.format("%s", big.c_str());  // changes nothing where it cannot
            refusedSize = 0;
            EXPECT_EQ(bytesOf(string), before);
            EXPECT_EQ(string.getCapacity(), capacity);
            string.append("usable");
            checkString(string);
        }
    }
}

}  // namespace
