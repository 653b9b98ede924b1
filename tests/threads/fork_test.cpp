// link: static

// What a child finds that is forked while other threads are in the library.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "Z/ZFileLock.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/zutils.h"
#include "qcs/qcs.h"
#include "support/locks.h"
#include "support/processes.h"

namespace {

using namespace testsupport;

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};

struct Factory : ZAbstractPropertiesFactory {
    ZProperties* makePropertiesInstance() override { return new ZStanzaFileProperties(0); }
};

struct Watcher : ZObserverInterface {
    void update(ZAbstractObservable* /*source*/, ZObservedParm const& /*parm*/) override {}
};

TEST(ForkTest, AChildNeverWaitsForAThreadOfItsParentNorFindsItsWorkHalfDone) {
    TempDir const directory;
    std::unique_ptr<FILE, CloseFile> const nowhere(fopen("/dev/null", "w"));
    Factory factory;
    Watcher watcher;
    ZStubProcessReadWriteLock lock("config");
    int number = 0;
    std::function<void()> const operations[] = {
        [&] { zhex_dump(nowhere.get(), 7, reinterpret_cast<unsigned char const*>("content"), ""); },
        [&] {
            writeFile(directory.file(std::to_string(++number)), "[a]\nb = c\n");
            ZProperties::getPropertiesFor(directory.file(std::to_string(number)).c_str(), factory);
        },
        [&] { qcs_cs_free(qcs_cs_new("ISO-8859-1")); },
        [&] { static_cast<void>(qcs_loc_new("C.utf8")); },
        [&] {
            lock.addObserver(&watcher);
            lock.deleteObserver(&watcher);
        },
        [&] { static_cast<void>(ZStubProcessReadWriteLock(lock).tryReadLock()); },
    };
    for (auto const& operation : operations) {
        SCOPED_TRACE(&operation - operations);
        operation();
        std::atomic<bool> isOver{false};
        std::atomic<int> rounds{0};
        Beside busy([&] {
            for (; !isOver; ++rounds)
                operation();
        });
        awaitThat([&] { return rounds > 0; });
        int status = 0;
        for (int i = 0; i < 60 && status == 0; ++i)
            status = inChild([&] {
                alarm(20);  // behind this it hangs
                operation();
                return lock.countObservers() > 1 ? 1 : 0;
            });
        EXPECT_EQ(status, 0);
        isOver = true;
        busy.join();
    }
}

}  // namespace
