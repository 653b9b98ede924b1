// link: static
// wrap: gethostname,gethostbyname_r,malloc

// The host's name with a resolver of the test's own, and what this platform has not.
#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Z/ZException.h"
#include "Z/ZLocalHostName.h"
#include "Z/ZWinRegistry.h"
#include "support/reports.h"

using testsupport::Report;
using testsupport::Reports;
using testsupport::thrownBy;

namespace {

/// What the wrapped calls do; each test ends with a new one.
struct Resolver {
    int hostNameError = 0;
    int lookUpError = 0;
    bool knows = true;
    std::size_t needs = 0;  // bytes of storage
    int calls = 0;
    std::size_t failingBlock = 0;  // size of the malloc that fails
    std::string asked;
};
Resolver resolver;

}  // namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
    if (resolver.failingBlock != 0 && size == resolver.failingBlock) return nullptr;
    return __real_malloc(size);
}

int __wrap_gethostname(char* name, std::size_t size) {
    EXPECT_EQ(256U, size);
    errno = resolver.hostNameError;
    if (errno != 0) return -1;
    std::strcpy(name, "web1");
    return 0;
}

int __wrap_gethostbyname_r(char const* name, hostent* entry, char* storage, std::size_t size,
                           hostent** found, int*) {
    ++resolver.calls;
    resolver.asked = name;
    *found = nullptr;
    errno = size < resolver.needs ? ERANGE : resolver.lookUpError;
    if (errno == 0 && resolver.knows) {
        entry->h_name = std::strcpy(storage, "web1.example.com");
        *found = entry;
    }
    return errno;
}
}

namespace {

struct LineReports : Reports {
    void outputMessage(char const* file, int reportLine, int number, int count, ZLCString const* s1,
                       ZLCString const* s2, ZLCString const* s3, ZLCString const* s4,
                       ZLCString const* s5, ZLCString const* s6) const override {
        line = reportLine;
        Reports::outputMessage(file, reportLine, number, count, s1, s2, s3, s4, s5, s6);
    }
    mutable int line = 0;
};

class HostNameTest : public testing::Test {
  protected:
    ~HostNameTest() override { resolver = {}; }

    /// Expects no name, and one report.
    void expectReport(int number, int line, int error) {
        EXPECT_TRUE(ZLocalHostName::getLocalHostName().isEmpty());
        std::vector<Report> const expected{
            {"src/Z/ZLocalHostName", number, {std::to_string(error)}}};
        EXPECT_EQ(expected, reports.take());
        EXPECT_EQ(line, reports.line);
    }

    LineReports reports;
};

TEST_F(HostNameTest, IsTheOneThatTheResolverGivesHoweverMuchItStores) {
    for (auto const& [needs, calls] : {std::pair(100U, 1), std::pair(5000U, 4)}) {
        resolver.needs = needs;
        resolver.calls = 0;
        EXPECT_EQ(ZLocalHostName::getLocalHostName(), "web1.example.com");
        EXPECT_EQ(calls, resolver.calls);
    }
    EXPECT_EQ("web1", resolver.asked);
    EXPECT_TRUE(reports.take().empty());
}

TEST_F(HostNameTest, IsEmptyWithOneReportWhenItCannotBeHad) {
    resolver.hostNameError = ENAMETOOLONG;
    expectReport(25, 69, ENAMETOOLONG);
    EXPECT_EQ(0, resolver.calls);
    resolver.hostNameError = 0;
    resolver.lookUpError = EAGAIN;
    expectReport(26, 82, EAGAIN);
    resolver.lookUpError = 0;
    resolver.knows = false;
    expectReport(26, 82, 0);
    resolver.needs = ~std::size_t{0};
    expectReport(26, 82, ERANGE);
}

TEST_F(HostNameTest, LackOfMemoryIsThrown) {
    for (std::size_t const size : {256U, 1024U}) {
        resolver.failingBlock = size;
        try {
            static_cast<void>(ZLocalHostName::getLocalHostName());
            ADD_FAILURE() << "nothing is thrown";
        } catch (ZOutOfMemoryException const& e) {
            EXPECT_STREQ("src/Z/ZLocalHostName", e.who());
            EXPECT_EQ(50, e.where());
        }
    }
}

TEST(WindowsRegistryTest, EveryOperationSaysThatThePlatformIsAnother) {
    Report const otherPlatform{"ZInvalidPlatformException", 11, {}};
    EXPECT_EQ(otherPlatform, thrownBy([] { static_cast<void>(ZWinRegistry::exists("HKLM\\A")); }));
    EXPECT_EQ(otherPlatform,
              thrownBy([] { static_cast<void>(ZWinRegistry::getValue("HKLM\\A", "b")); }));
}

}  // namespace
