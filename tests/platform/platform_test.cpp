// link: static
// wrap: gethostname,gethostbyname_r,malloc

// The host's name with a resolver of the test's own, and what this platform has not.
#include <gtest/gtest.h>
#include <netdb.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Z/ZException.h"
#include "Z/ZLocalHostName.h"
#include "Z/ZWinRegistry.h"
#include "support/faults.h"
#include "support/reports.h"

using namespace testsupport;

WRAP(malloc, void*, nullptr, (std::size_t size), (size))
WRAP(gethostname, int, -1, (char* name, std::size_t size), (name, size))

/// What the resolver of the test does, and what it was asked.
struct Resolver {
    std::size_t needs = 0;  // bytes of storage
    int error = 0;
    bool knows = true;
    std::string asked = {};
};
static Resolver resolver;

extern "C" int __wrap_gethostbyname_r(char const* name, hostent* entry, char* storage,
                                      std::size_t size, hostent** found, int*) {
    resolver.asked = name;
    *found = nullptr;
    errno = size < resolver.needs ? ERANGE : resolver.error;
    if (errno == 0 && resolver.knows) {
        entry->h_name = std::strcpy(storage, "web1.example.com");
        *found = entry;
    }
    return errno;
}

namespace {

TEST(HostNameTest, IsTheOneThatTheResolverGivesHoweverMuchItStores) {
    char host[256];
    ASSERT_EQ(0, gethostname(host, sizeof host));
    resolver = {5000, 0, true};
    EXPECT_EQ(ZLocalHostName::getLocalHostName(), "web1.example.com");
    EXPECT_EQ(host, resolver.asked);
}

TEST(HostNameTest, IsEmptyWithOneReportWhenItCannotBeHadAndMemoryIsThrown) {
    auto const reportOf = [](Resolver const& resolving, Fault const& planned) {
        return errorOutputOf([&] {
            fault = planned;
            resolver = resolving;
            if (!ZLocalHostName::getLocalHostName().isEmpty()) abort();
        });
    };
    std::string const file = " File: \"src/Z/ZLocalHostName\" ";
    std::string const more = "\n Thread: #\nAdditional Information:\n";
    EXPECT_EQ("Error: 25\n" + file + "69" + more + "36\n",
              reportOf({}, {"gethostname", 1, ENAMETOOLONG}));
    std::string const noEntry = "Error: 26\n" + file + "82" + more;
    EXPECT_EQ(noEntry + "11\n", reportOf({0, EAGAIN, true}, {}));
    EXPECT_EQ(noEntry + "0\n", reportOf({0, 0, false}, {}));
    EXPECT_EQ(noEntry + "34\n", reportOf({~std::size_t{0}, 0, true}, {}));
    for (int const number : {1, 2})
        EXPECT_EQ(0U, reportOf({}, {"malloc", number, ENOMEM})
                          .find("Exception: ZOutOfMemoryException\n" + file + "50\n"));
}

TEST(WindowsRegistryTest, EveryOperationSaysThatThePlatformIsAnother) {
    EXPECT_THROW(static_cast<void>(ZWinRegistry::exists("HKLM\\A")), ZInvalidPlatformException);
    EXPECT_THROW(static_cast<void>(ZWinRegistry::getValue("HKLM\\A", "b")),
                 ZInvalidPlatformException);
}

}  // namespace
