// link: static
// wrap: dlopen

// Real plug-ins loaded by the real loader, which is asked to tell the names that it is given.
#include "Z/ZSharedLibrary.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
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

/// What the standard report of the exception of `action` says, called with this `errno`, which the
/// loader of this system leaves alone.
template <class Action>
std::string reportOf(int error, Action const& action) {
    auto const body = [&] {
        errno = error;
        try {
            action();
        } catch (ZException& e) {
            e.dumpException();
        }
        return 0;
    };
    return testsupport::captureChild(body).err;
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
        std::vector<std::string> files;
        for (auto const& attempt : attempts)
            files.push_back(attempt.file);
        EXPECT_EQ(row.files, files);
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
    EXPECT_TRUE(isIn(reportOf(77, [&] { library.loadLibrary(); }),
                     "Shared library load/unload error (./libx) 77.  ./libx: cannot open"));
    EXPECT_TRUE(isIn(reportOf(78, [&] { library.resolveSymbol("f"); }),
                     "Shared library resolve error (./libx:f) 78.  "));
    library.setLastErrorMessage("an earlier text");
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
    EXPECT_TRUE(isIn(reportOf(0, [&] { plugin.loadLibrary(); }), ") 0.  initialize"));
    EXPECT_EQ(loadFailure, thrownBy([&] { plugin.loadLibrary(); }));
    EXPECT_EQ(42, answerOf(plugin));
    EXPECT_EQ(0, plugin.unloadLibrary());
}

TEST(PluginTest, FlagsAreTheLoadersModeAndLocalScopeIsNeverTold) {
    ZSharedLibrary library(plain.c_str());
    struct {
        std::function<void()> set;
        int flags, mode;
    } const rows[] = {
        {[] {}, 0, 258},
        {[&] { library.setLocalScope(1); }, 0, 258},  // no bit is set: the default mode
        {[&] { library.setLazyResolution(1); }, 1, 1},
        {[&] { library.setLocalScope(0); }, 257, 257},
        {[&] { library.setLazyResolution(0); }, 258, 258},
        {[&] { library.setLocalScope(1); }, 2, 2},
        {[&] { library.setFlags(RTLD_LAZY); }, 1, 1},
    };
    for (auto const& row : rows) {
        row.set();
        EXPECT_EQ(row.flags, library.getFlags());
        EXPECT_EQ(row.flags & 1, library.getLazyResolution());
        EXPECT_EQ(0, library.getLocalScope());
        attempts.clear();
        library.loadLibrary();
        library.unloadLibrary();
        EXPECT_EQ(row.mode, attempts.at(0).mode);
    }
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
