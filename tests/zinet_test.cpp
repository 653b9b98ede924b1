#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>

#include "Z/zinet_ntop.h"
#include "Z/zinet_pton.h"

namespace {

TEST(InternetAddressTest, ReadsBackAsItWasWritten) {
    struct {
        int family;
        const char *text, *canonical;
    } const rows[] = {{AF_INET, "192.0.2.17", "192.0.2.17"},
                      {AF_INET6, "2001:DB8:0:0::1", "2001:db8::1"}};
    for (auto const& row : rows) {
        in6_addr address{};
        std::array<char, INET6_ADDRSTRLEN> text{};
        EXPECT_EQ(zinet_pton(row.family, row.text, &address), 1) << row.text;
        EXPECT_EQ(zinet_ntop(row.family, &address, text.data(), text.size()), text.data());
        EXPECT_STREQ(text.data(), row.canonical);
    }
}

TEST(InternetAddressTest, RefusesWhatIsNone) {
    in6_addr address{};
    std::array<char, 4> small{};
    for (const char* const text : {"", "1.2.3.256", "::1"})
        EXPECT_EQ(zinet_pton(AF_INET, text, &address), 0) << text;
    EXPECT_EQ(zinet_pton(AF_INET, nullptr, &address), 0);
    EXPECT_EQ(zinet_pton(AF_UNIX, "1.2.3.4", &address), -1);
    EXPECT_EQ(errno, EAFNOSUPPORT);
    EXPECT_EQ(zinet_ntop(AF_INET, &address, small.data(), small.size()), nullptr);
    EXPECT_EQ(errno, ENOSPC);
}

}  // namespace
