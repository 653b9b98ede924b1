/// What a user sees of reports.
#ifndef ZFC_TESTS_SUPPORT_ERROR_OUTPUT_H
#define ZFC_TESTS_SUPPORT_ERROR_OUTPUT_H

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "Z/ZException.h"
#include "support/processes.h"

namespace testsupport {

/// What `body` writes to standard error, the report of an exception that it throws included; "#"
/// stands for the numbers of threads.
template <class Body>
std::string errorOutputOf(Body const& body) {
    auto const captured = captureChild([&body] {
        try {
            body();
        } catch (ZException& e) {
            e.dumpException();
        }
        return 0;
    });
    EXPECT_EQ(captured.status, 0);
    return std::regex_replace(captured.err, std::regex(" Thread: -?\\d+\n"), " Thread: #\n");
}

}  // namespace testsupport

#endif
