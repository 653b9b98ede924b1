// Files as people write them: what is accepted keeps its values over rewrites, what is rejected
// names the line that its file name tells.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZList.h"
#include "Z/ZStanzaFileProperties.h"
#include "support/processes.h"

namespace {

namespace fs = std::filesystem;
using testsupport::openDescriptors;
using testsupport::readFile;
using testsupport::TempDir;
using testsupport::writeFile;

std::vector<std::string> filesIn(std::string const& folder) {
    std::vector<std::string> files;
    for (auto const& entry : fs::directory_iterator(ZFC_TEST_FILES "/" + folder))
        files.push_back(entry.path().string());
    return files;
}

using Value = std::pair<std::string, std::string>;  // "stanza/key", value

std::vector<Value> valuesIn(std::string const& file) {
    ZStanzaFileProperties const properties(file.c_str(), 1);
    std::vector<Value> values;
    ZPropertiesIterator stanzas(properties);
    while (stanzas.next()) {
        std::string const stanza = stanzas.getName();
        values.emplace_back(stanza, "");
        if (stanza.empty()) continue;
        ZPropertiesIterator keys(properties, stanza.c_str());
        while (keys.next()) {
            ZArrayList list(1, 1);
            properties.getValues(stanza.c_str(), keys.getName(), list, zpropLocalCodeset);
            values.emplace_back(stanza + "/" + keys.getName(), std::to_string(list.size()));
            for (unsigned int i = 0; i < list.size(); ++i)
                values.emplace_back(stanza + "/" + keys.getName(),
                                    static_cast<ZLCString*>(list.get(i))->getChars());
        }
    }
    return values;
}

void rewrite(std::string const& file, int keepComments) {
    ZStanzaFileProperties properties(file.c_str(), keepComments);
    properties.store(nullptr);
}

class AcceptedFile : public testing::TestWithParam<std::string> {};

TEST_P(AcceptedFile, KeepsItsValuesAndIsTheSameBytesFromTheFirstRewriteOn) {
    TempDir const dir;
    auto const file = dir.file("sample");
    writeFile(file, readFile(GetParam()));
    auto const values = valuesIn(file);

    rewrite(file, 1);
    auto const once = readFile(file);
    EXPECT_EQ(valuesIn(file), values);
    rewrite(file, 1);
    EXPECT_EQ(readFile(file), once);

    rewrite(file, 0);
    EXPECT_EQ(valuesIn(file), values);
}

INSTANTIATE_TEST_SUITE_P(Files, AcceptedFile, testing::ValuesIn(filesIn("accepted")));

class RejectedFile : public testing::TestWithParam<std::string> {};

TEST_P(RejectedFile, NamesItsLineAndLeavesNothingOpen) {
    auto const name = fs::path(GetParam()).stem().extension().string();  // ".LINE"
    int const descriptors = openDescriptors();
    try {
        ZStanzaFileProperties const properties(GetParam().c_str(), 1);
        FAIL() << "accepted";
    } catch (ZPropertiesInvalidDataException const& e) {
        EXPECT_EQ("." + std::to_string(e.badline()), name);
        EXPECT_EQ(e.propFile(), GetParam());
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

INSTANTIATE_TEST_SUITE_P(Files, RejectedFile, testing::ValuesIn(filesIn("rejected")));

}  // namespace
