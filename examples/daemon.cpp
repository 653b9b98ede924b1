// A daemon whose settings follow their file: it reads the file when it has changed and at SIGHUP,
// keeps the settings that it has when the file is broken or has a value that it cannot use, and
// ends at SIGTERM and SIGINT. It has one thread, which waits for everything at one place.
//
//     daemon FILE
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <stdexcept>
#include <string>

#include "Z/ZException.h"
#include "Z/ZFileWatcher.h"
#include "Z/ZStanzaFileProperties.h"

namespace {

/// The signals of a daemon, as a descriptor: they are taken where the program waits for its work,
/// and not in the midst of it.
class Signals {
  public:
    Signals() {
        sigset_t taken;
        sigemptyset(&taken);
        for (int const one : {SIGHUP, SIGTERM, SIGINT})
            sigaddset(&taken, one);
        pthread_sigmask(SIG_BLOCK, &taken, nullptr);
        fd = signalfd(-1, &taken, SFD_CLOEXEC);
        if (fd < 0) throw std::runtime_error("signals cannot be had as a descriptor");
    }
    ~Signals() { close(fd); }
    Signals(Signals const&) = delete;
    Signals& operator=(Signals const&) = delete;

    [[nodiscard]] int descriptor() const { return fd; }
    /// Waits for one.
    [[nodiscard]] int next() const {
        signalfd_siginfo info{};
        return read(fd, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
    }

  private:
    int fd;
};

/// Is told of each key that a reload has changed.
class ChangedKeys : public ZObserverInterface {
  public:
    void update(ZAbstractObservable* /*source*/, ZObservedParm const& parm) override {
        auto const& change = static_cast<ZPropertyChanged const&>(parm);
        if (change.getKey() == nullptr) return;  // a whole stanza, whose keys are told as well
        bool const isSet = change.getChangeType() == ZPropertyChanged::valueSet;
        std::cout << (isSet ? "set: " : "deleted: ") << change.getStanza() << " " << change.getKey()
                  << std::endl;
    }
};

/// Is told what became of the file.
class FileNotices : public ZObserverInterface {
  public:
    void update(ZAbstractObservable* /*source*/, ZObservedParm const& parm) override {
        auto const& notice = static_cast<ZFileWatched const&>(parm);
        using Event = ZFileWatched::Event;
        bool const isKept =
            notice.getEvent() == Event::failed || notice.getEvent() == Event::missing;
        if (notice.getFailure() == nullptr) return;
        std::cout << (isKept ? "settings kept: " : "note: ")
                  << notice.getFailure()->text().getChars() << std::endl;
    }
};

// [settings]
/// Settings that are taken whole or not at all.
class Settings : public ZStanzaFileProperties {
  public:
    Settings() : ZStanzaFileProperties(1) { setAttributes(ZPCache::keepLastGood, nullptr); }

    [[nodiscard]] unsigned int port() const { return getIntegerValue("server", "port", 0, 80); }

  protected:
    /// Called when the file is read and its values are those of the object. What is raised here
    /// refuses them, as if the file could not be read.
    void postLoad(char const* /*file*/) override {
        if (port() > 65535)
            throw ZPropertiesInvalidNumValueException(getFileName().getChars(), "server", "port",
                                                      std::to_string(port()).c_str());
    }
};
// [/settings]

class Daemon {
  public:
    explicit Daemon(char const* file) {
        settings.load(file);  // without settings at all there is nothing to go on with
        settings.addObserver(&keys);
        watcher.addObserver(&files);
        watcher.add(settings);
    }
    ~Daemon() {
        watcher.remove(settings);
        settings.deleteObserver(&keys);
    }
    Daemon(Daemon const&) = delete;
    Daemon& operator=(Daemon const&) = delete;

    void run() {
        apply();
        // [loop]
        while (!isEnded) {
            pollfd sources[] = {{signals.descriptor(), POLLIN, 0},
                                {watcher.getDescriptor(), POLLIN, 0}};
            if (poll(sources, 2, -1) < 0 && errno != EINTR)
                throw std::runtime_error("poll() failed");
            if (sources[0].revents != 0) take(signals.next());
            if (sources[1].revents != 0 && watcher.reloadChanged() != 0) apply();
        }
        // [/loop]
    }

  private:
    void take(int signal) {
        if (signal == SIGHUP) return watcher.checkAll();  // and the watcher has something to do
        isEnded = true;
    }

    /// What a real one would do with its settings: open sockets, set the level of its log.
    void apply() const {
        ZLCString host;
        settings.getValue("server", "host", host, 0, "localhost");
        std::cout << "serving " << host.getChars() << ":" << settings.port() << std::endl;
    }

    Signals signals;  // first: they are blocked before anything else may start a thread
    Settings settings;
    ChangedKeys keys;
    FileNotices files;
    ZFileWatcher watcher;
    bool isEnded = false;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: daemon FILE\n";
        return 2;
    }
    try {
        Daemon(argv[1]).run();
    } catch (ZException& e) {
        e.dumpException();  // to standard error, by the message service
        return 1;
    } catch (std::exception const& e) {
        std::cerr << e.what() << "\n";
        return 1;
    }
    return 0;
}
