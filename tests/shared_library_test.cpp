// link: static
// wrap: dlopen
//
// Real plug-ins loaded by the real loader, which is asked to tell the names that it is given.
#include "Z/ZSharedLibrary.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "Z/ZException.h"
#include "Z/zshlib.h"
#include "support/processes.h"
#include "support/reports.h"

using testsupport::Report;
using testsupport::thrownBy;

namespace {

struct Attempt {
    std::string file;
    int mode;
};
std::vector<Attempt> attempts;

std::vector<std::string> attemptedFiles() {
    std::vector<std::string> files;
    for (auto const& attempt : attempts)
        files.push_back(attempt.file);
    attempts.clear();
    return files;
}

}  // namespace

extern "C" {
void* __real_dlopen(char const* file, int mode);
void* __wrap_dlopen(char const* file, int mode) {
    attempts.push_back({file, mode});
    return __real_dlopen(file, mode);
}
}

namespace {

using Answer = int (*)();
std::string const plain = ZFC_TEST_PLUGIN;                   // ".../plain.so"
std::string const bare = plain.substr(0, plain.size() - 3);  // ".../plain"
Report const noReport{"", 0, {}};
Report const loadFailure{"ZSharedLibraryLoadException", 51, {}};
Report const resolveFailure{"ZSharedLibraryResolveException", 52, {}};

/// What the standard report of the exception of `action` ends with.
template <class Action>
std::string reportOf(Action const& action) {
    return testsupport::captureChild([&] {
               try {
                   action();
               } catch (ZException& e) {
                   e.dumpException();
               }
               return 0;
           })
        .err;
}

bool isIn(std::string const& text, std::string const& part) {
    return text.find(part) != std::string::npos;
}

int answerOf(ZSharedLibrary& library) {
    return reinterpret_cast<Answer>(library.resolveSymbol("plain_answer"))();
}

bool isLoaded() {
    void* const handle = __real_dlopen(plain.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
}

TEST(PluginTest, NameIsTriedFirstAndThenWithEachSuffixTheOtherWayRound) {
    struct Row {
        std::string name;
        std::vector<std::string> files;
        bool loads;
    };
    for (auto const& row : {Row{plain, {plain}, true}, Row{bare, {bare, plain}, true},
                            Row{plain + ".so", {plain + ".so", plain}, true},
                            Row{"libx", {"libx", "libx.so", "libx.so"}, false},
                            Row{"libx.so", {"libx.so", "libx", "libx"}, false},
                            Row{"a.so.so", {"a.so.so", "a.so", "a.so"}, false},
                            Row{"a.so.1", {"a.so.1", "a.so.1.so", "a.so.1.so"}, false}}) {
        attempts.clear();
        ZSharedLibrary library(row.name.c_str());
        EXPECT_EQ(row.loads ? noReport : loadFailure, thrownBy([&] { library.loadLibrary(); }));
        EXPECT_EQ(row.files, attemptedFiles());
        EXPECT_EQ(row.loads, library.getHandle() != nullptr);
        EXPECT_EQ(row.loads ? noReport : loadFailure, thrownBy([&] { library.unloadLibrary(); }));
        EXPECT_EQ(nullptr, library.getHandle());
    }
}

TEST(PluginTest, LoadedLibraryAnswersUntilItIsUnloaded) {
    ZSharedLibrary library(plain.c_str());
    EXPECT_EQ(0, library.loadLibrary());
    EXPECT_EQ(42, answerOf(library));
    EXPECT_EQ(resolveFailure, thrownBy([&] { library.resolveSymbol("absent"); }));
    EXPECT_TRUE(library.getLastErrorMessage().contains("undefined symbol: absent"));
    EXPECT_EQ(resolveFailure, thrownBy([&] { library.resolveSymbol(nullptr); }));
    EXPECT_EQ(0, library.unloadLibrary());
    EXPECT_FALSE(isLoaded());
    EXPECT_EQ(resolveFailure, thrownBy([&] { library.resolveSymbol("plain_answer"); }));
    EXPECT_EQ(loadFailure, thrownBy([&] { library.unloadLibrary(); }));
    EXPECT_EQ(ENOENT, library.getLastErrorNumber());
}

TEST(PluginTest, FailureTellsNumberAndTextOfTheNameItself) {
    ZSharedLibrary library("./libx");
    EXPECT_EQ(0, library.getLastErrorNumber());
    EXPECT_TRUE(library.getLastErrorMessage().isEmpty());
    errno = 77;
    EXPECT_EQ(loadFailure, thrownBy([&] { library.loadLibrary(); }));
    EXPECT_EQ(77, library.getLastErrorNumber()) << "this loader leaves errno alone";
    EXPECT_TRUE(library.getLastErrorMessage().beginsWith("./libx: cannot open"));
    EXPECT_TRUE(isIn(reportOf([&] {
                         errno = 78;
                         library.loadLibrary();
                     }),
                     "Shared library load/unload error (./libx) 78.  ./libx: cannot open"));
    library.setLastErrorMessage("an earlier text");
    free(zdlerror());  // that of the last attempt
    EXPECT_TRUE(isIn(reportOf([&] {
                         errno = 79;
                         library.resolveSymbol("f");
                     }),
                     "Shared library resolve error (./libx:f) 79.  "));
    library.setLastError(5);
    EXPECT_EQ(5, library.getLastErrorNumber());
    EXPECT_TRUE(library.getLastErrorMessage().isEmpty());
}

TEST(PluginTest, FailingInitializeFailsTheLoadAndKeepsTheHandle) {
    struct Plugin : ZSharedLibrary {
        using ZSharedLibrary::ZSharedLibrary;
        int initialize() override { return answerOf(*this) - 42 + result; }
        int result = 0;
    } plugin(plain.c_str());
    EXPECT_EQ(0, plugin.loadLibrary());
    EXPECT_EQ(0, plugin.unloadLibrary());
    plugin.result = 1;
    EXPECT_TRUE(isIn(reportOf([&] { plugin.loadLibrary(); }), ") 0.  initialize"));
    EXPECT_EQ(loadFailure, thrownBy([&] { plugin.loadLibrary(); }));
    EXPECT_EQ(42, answerOf(plugin));
    EXPECT_EQ(0, plugin.unloadLibrary());
}

TEST(PluginTest, FlagsAreTheLoadersModeAndLocalScopeIsNeverTold) {
    ZSharedLibrary library(plain.c_str());
    auto const loadedWith = [&] {
        attempts.clear();
        library.loadLibrary();
        library.unloadLibrary();
        return attempts.at(0).mode;
    };
    EXPECT_EQ(0, library.getFlags());
    EXPECT_EQ(258, loadedWith());
    library.setLazyResolution(1);
    EXPECT_EQ(1, library.getLazyResolution());
    EXPECT_EQ(1, loadedWith());
    library.setLocalScope(0);
    EXPECT_EQ(257, loadedWith());
    EXPECT_EQ(0, library.getLocalScope());
    library.setLazyResolution(0);
    EXPECT_EQ(0, library.getLazyResolution());
    EXPECT_EQ(258, library.getFlags());
    library.setLocalScope(1);
    EXPECT_EQ(2, loadedWith());
    EXPECT_EQ(0, library.getLocalScope());
    library.setFlags(RTLD_LAZY);
    EXPECT_EQ(1, loadedWith());
}

TEST(PluginTest, ObjectsThatNameOneLibraryAreEqual) {
    ZSharedLibrary const one("libx");
    ZSharedLibrary const same("libx");
    ZSharedLibrary const other("liby");
    EXPECT_TRUE(one.equals(same));
    EXPECT_EQ(one.hash(), same.hash());
    EXPECT_LT(one.compare(other), 0);
    EXPECT_FALSE(one.equals(ZLCString("libx")));
    EXPECT_TRUE(ZSharedLibrary().getLibraryName().isEmpty());
}

TEST(PluginTest, EveryCopyHoldsTheLibraryUntilItUnloadsIt) {
    ZSharedLibrary library(plain.c_str());
    library.loadLibrary();
    library.setLastErrorNumber(7);
    ZSharedLibrary copy(library);
    std::unique_ptr<ZObject> const clone(library.clone());
    ZSharedLibrary assigned;
    assigned = copy;
    assigned = *&assigned;
    library.unloadLibrary();
    for (auto* const each : {&copy, dynamic_cast<ZSharedLibrary*>(clone.get()), &assigned}) {
        EXPECT_TRUE(isLoaded());
        EXPECT_EQ(7, each->getLastErrorNumber());
        EXPECT_EQ(42, answerOf(*each));
        each->unloadLibrary();
    }
    EXPECT_FALSE(isLoaded());
    copy = library;
    EXPECT_EQ(nullptr, copy.getHandle());
}

TEST(LoaderFunctionTest, ErrorNumberIsZeroFirstAndMayBeLeftOut) {
    int err = -1;
    EXPECT_EQ(nullptr, zdlopen(nullptr, 0, &err));
    EXPECT_EQ(2, err);
    errno = 77;
    EXPECT_EQ(nullptr, zdlopen("./libx", 0, &err));
    EXPECT_EQ(77, err) << "this loader leaves errno alone";
    std::unique_ptr<char, decltype(&free)> const text(zdlerror(), &free);
    EXPECT_TRUE(isIn(text.get(), "./libx: cannot open shared object file"));
    EXPECT_EQ(nullptr, zdlerror());

    void* const handle = zdlopen(plain.c_str(), RTLD_LAZY, &err);
    EXPECT_EQ(0, err);
    err = -1;
    EXPECT_NE(nullptr, zdlsym(handle, "plain_answer", &err));
    EXPECT_EQ(0, err);
    errno = 9;
    EXPECT_EQ(nullptr, zdlsym(handle, nullptr, &err));
    EXPECT_EQ(9, err);
    EXPECT_EQ(nullptr, zdlsym(nullptr, "plain_answer", &err));
    EXPECT_EQ(nullptr, zdlsym(handle, "absent", nullptr));
    EXPECT_EQ(0, zdlclose(handle, &err));
    EXPECT_EQ(0, err);
    EXPECT_NE(0, zdlclose(nullptr, &err));
    EXPECT_EQ(2, err);
    EXPECT_NE(0, zdlclose(nullptr, nullptr));
    EXPECT_EQ(nullptr, zdlopen(nullptr, 0, nullptr));
}

}  // namespace
