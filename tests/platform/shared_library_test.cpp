// link: static
// wrap: dlopen

// Real plug-ins loaded by the real loader, which is asked to tell the names that it is given.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZSharedLibrary.h"
#include "Z/zshlib.h"
#include "support/reports.h"

using namespace testsupport;

static std::vector<std::pair<std::string, int>> attempts;  // files and modes

extern "C" decltype(dlopen) __real_dlopen;
extern "C" void* __wrap_dlopen(char const* file, int mode) {
    attempts.emplace_back(file, mode);
    return __real_dlopen(file, mode);
}

namespace {

using LoadFailure = ZSharedLibraryLoadException;
using ResolveFailure = ZSharedLibraryResolveException;

std::string const plain = ZFC_TEST_PLUGIN;  // ".../plain.so"

bool isIn(std::string const& text, std::string const& part) {
    return text.find(part) != std::string::npos;
}

int answerOf(ZSharedLibrary& library) {
    return reinterpret_cast<int (*)()>(library.resolveSymbol("plain_answer"))();
}

bool isLoaded() {
    void* const handle = __real_dlopen(plain.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
}

TEST(PluginTest, NameIsTriedFirstAndThenWithEachSuffixTheOtherWayRound) {
    std::vector<std::string> const rows[] = {{plain},
                                             {plain.substr(0, plain.size() - 3), plain},
                                             {plain + ".so", plain},
                                             {"libx", "libx.so", "libx.so"},
                                             {"a.so.so", "a.so", "a.so"},
                                             {".so"},  // without it nothing is left
                                             {}};
    for (auto const& expected : rows) {
        attempts.clear();
        ZSharedLibrary library(expected.empty() ? "" : expected[0].c_str());
        Report const failure = thrownBy([&] { library.loadLibrary(); });
        EXPECT_EQ(!expected.empty() && expected.back() == plain, failure.number == 0);
        if (library.getHandle() != nullptr) library.unloadLibrary();
        EXPECT_EQ(nullptr, library.getHandle());
        std::vector<std::string> files;
        for (auto const& [file, mode] : attempts)
            files.push_back(file);
        EXPECT_EQ(expected, files);
    }
}

TEST(PluginTest, LoadedLibraryAnswersUntilItIsUnloaded) {
    ZSharedLibrary library(plain.c_str());
    EXPECT_EQ(0, library.loadLibrary());
    EXPECT_EQ(42, answerOf(library));
    EXPECT_THROW(library.resolveSymbol("absent"), ResolveFailure);
    EXPECT_TRUE(library.getLastErrorMessage().contains("undefined symbol: absent"));
    EXPECT_EQ(0, library.unloadLibrary());
    EXPECT_FALSE(isLoaded());
    EXPECT_THROW(answerOf(library), ResolveFailure);
    EXPECT_THROW(library.unloadLibrary(), LoadFailure);
    EXPECT_EQ(ENOENT, library.getLastErrorNumber());
}

TEST(PluginTest, FailureTellsNumberAndTextOfTheNameItself) {
    ZSharedLibrary library("./libx");
    errno = 77;  // the loader of this system leaves it alone
    std::string const load = errorOutputOf([&] { library.loadLibrary(); });
    EXPECT_TRUE(isIn(load, "load/unload error (./libx) 77.  ./libx: cannot open")) << load;
    errno = 78;
    std::string const resolve = errorOutputOf([&] { library.resolveSymbol("f"); });
    EXPECT_TRUE(isIn(resolve, "Shared library resolve error (./libx:f) 78.  ")) << resolve;
    library.setLastErrorMessage("an earlier text");
    library.setLastError(5);
    EXPECT_EQ(5, library.getLastErrorNumber());
    EXPECT_TRUE(library.getLastErrorMessage().isEmpty());
    EXPECT_EQ(nullptr, zdlopen("./liby", 0, nullptr));  // leaves a text that is not this library's
    EXPECT_THROW(library.unloadLibrary(), LoadFailure);
    EXPECT_TRUE(library.getLastErrorMessage().isEmpty());
}

TEST(PluginTest, FailingInitializeFailsTheLoadAndKeepsTheHandle) {
    struct Plugin : ZSharedLibrary {
        using ZSharedLibrary::ZSharedLibrary;
        int initialize() override { return answerOf(*this) - 41; }
    } plugin(plain.c_str());
    EXPECT_TRUE(isIn(errorOutputOf([&] { plugin.loadLibrary(); }), ") 0.  initialize"));
    EXPECT_THROW(plugin.loadLibrary(), LoadFailure);
    EXPECT_EQ(0, plugin.unloadLibrary());
}

TEST(PluginTest, FlagsAreTheLoadersModeAndLocalScopeIsNeverTold) {
    ZSharedLibrary library(plain.c_str());
    auto const expectFlags = [&](int flags, int mode) {
        EXPECT_EQ(flags, library.getFlags());
        EXPECT_EQ(flags & RTLD_LAZY, library.getLazyResolution());
        EXPECT_EQ(0, library.getLocalScope());
        attempts.clear();
        library.loadLibrary();
        library.unloadLibrary();
        EXPECT_EQ(mode, attempts.at(0).second);
    };
    expectFlags(0, RTLD_NOW | RTLD_GLOBAL);  // no bit is set: the default mode
    library.setLazyResolution(1);
    expectFlags(RTLD_LAZY, RTLD_LAZY);
    library.setLocalScope(0);
    expectFlags(RTLD_LAZY | RTLD_GLOBAL, RTLD_LAZY | RTLD_GLOBAL);
    library.setLazyResolution(0);
    library.setLocalScope(1);
    expectFlags(RTLD_NOW, RTLD_NOW);
    library.setFlags(0);
    library.setLocalScope(0);
    expectFlags(RTLD_GLOBAL, RTLD_GLOBAL | RTLD_LAZY);
}

TEST(PluginTest, EveryCopyIsEqualAndHoldsTheLibraryUntilItUnloadsIt) {
    ZSharedLibrary library(plain.c_str());
    library.loadLibrary();
    library.setLastErrorNumber(7);
    std::unique_ptr<ZObject> const clone(library.clone());
    EXPECT_TRUE(library.equals(*clone));
    EXPECT_EQ(library.hash(), clone->hash());
    EXPECT_GT(ZSharedLibrary("~").compare(library), 0);
    EXPECT_FALSE(library.equals(ZLCString(plain.c_str())));
    ZSharedLibrary assigned;
    assigned = library;
    assigned = *&assigned;
    library.unloadLibrary();
    for (auto* const each : {dynamic_cast<ZSharedLibrary*>(clone.get()), &assigned}) {
        EXPECT_EQ(7, each->getLastErrorNumber());
        EXPECT_EQ(42, answerOf(*each));
        each->unloadLibrary();
    }
    EXPECT_FALSE(isLoaded());
    EXPECT_EQ(nullptr, ZSharedLibrary(library).getHandle());
}

/// Of a function of the loader that is to end with `error`, 0 for success.
template <class Call>
void expectError(int error, Call call) {
    int err = -1;
    errno = 77;
    EXPECT_EQ(error == 0, call(&err));
    EXPECT_EQ(error, err);
    EXPECT_EQ(error == 0, call(nullptr));
}

TEST(LoaderFunctionTest, ErrorNumberIsZeroFirstAndMayBeLeftOut) {
    void* const handle = zdlopen(plain.c_str(), RTLD_LAZY, nullptr);
    expectError(0, [&](int* err) { return zdlopen(plain.c_str(), RTLD_LAZY, err) == handle; });
    expectError(0, [&](int* err) { return zdlsym(handle, "plain_answer", err) != nullptr; });
    expectError(0, [&](int* err) { return zdlclose(handle, err) == 0; });
    EXPECT_EQ(0, zdlclose(handle, nullptr));
    EXPECT_FALSE(isLoaded());
    expectError(ENOENT, [](int* err) { return zdlopen(nullptr, 0, err) != nullptr; });
    expectError(ENOENT, [](int* err) { return zdlclose(nullptr, err) == 0; });
    expectError(77, [](int* err) { return zdlsym(nullptr, nullptr, err) != nullptr; });
    expectError(77, [](int* err) { return zdlopen("./libx", 0, err) != nullptr; });
    std::unique_ptr<char, decltype(&free)> const text(zdlerror(), &free);
    EXPECT_TRUE(isIn(text.get(), "./libx: cannot open shared object file"));
    EXPECT_EQ(nullptr, zdlerror());
}

}  // namespace
