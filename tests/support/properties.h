/// Stanza files for the tests, and what their operations raise.
#ifndef ZFC_TESTS_SUPPORT_PROPERTIES_H
#define ZFC_TESTS_SUPPORT_PROPERTIES_H

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZList.h"
#include "Z/ZStanzaFileProperties.h"
#include "support/processes.h"

namespace testsupport {

using Texts = std::vector<std::string>;

/// What `body` throws, as an E; a failed test and nullptr when it throws nothing or something else.
template <class E, class Body>
std::unique_ptr<E> raisedBy(Body body) {
    try {
        body();
        ADD_FAILURE() << "nothing was thrown";
    } catch (E const& e) {
        return std::unique_ptr<E>(static_cast<E*>(e.clone()));
    } catch (ZException const& e) {
        ADD_FAILURE() << "another exception was thrown: " << e.getName();
    }
    return nullptr;
}

inline std::string ioText(std::string const& file, char const* api, int error) {
    return file + " " + api + " " + std::to_string(error);
}

/// The ZPropertiesIOException that `body` throws, as ioText() has it; empty when it throws none.
template <class Body>
std::string ioFailure(Body body) {
    try {
        body();
        return "";
    } catch (ZPropertiesIOException const& e) {
        return ioText(e.propFile(), e.api(), static_cast<int>(e.excerrno()));
    }
}

inline std::string valueOf(ZProperties const& properties, char const* stanza, char const* key) {
    ZLCString value;
    properties.getValue(stanza, key, value);
    return value.getChars();
}

/// The value that the next reader of the file finds.
inline std::string valueIn(std::string const& path, char const* stanza, char const* key) {
    return valueOf(ZStanzaFileProperties(path.c_str(), 1), stanza, key);
}

inline Texts textsOf(ZArrayList const& list) {
    Texts texts;
    for (unsigned int i = 0; i < list.size(); ++i)
        texts.emplace_back(dynamic_cast<ZAbstractString const&>(*list.get(i)).getChars());
    return texts;
}

inline Texts valuesOf(ZProperties const& properties, char const* stanza, char const* key) {
    ZArrayList values(1, 1);
    properties.getValues(stanza, key, values, zpropLocalCodeset);
    return textsOf(values);
}

/// A stanza file in a directory of its own.
class StanzaFile {
  public:
    explicit StanzaFile(std::string const& bytes) { writeFile(path(), bytes); }
    [[nodiscard]] std::string path() const { return directory.file("settings"); }
    [[nodiscard]] std::string const& place() const { return directory.path(); }
    [[nodiscard]] std::string beside(std::string const& name) const { return directory.file(name); }
    [[nodiscard]] std::string bytes() const { return readFile(path()); }
    [[nodiscard]] std::string companion() const { return path() + ".obf"; }

  private:
    TempDir directory;
};

/// A stanza file with the object that edits it, and keeps its comments.
class EditedFile : public StanzaFile {
  public:
    explicit EditedFile(std::string const& bytes) : StanzaFile(bytes) {}
    ZStanzaFileProperties properties{path().c_str(), 1};
};

/// Takes a lock on a whole file; the descriptor, or -1 when somebody else has one.
inline int lockWhole(std::string const& path, int command, short type) {
    int const fd = open(path.c_str(), O_RDWR);
    struct flock record {};
    record.l_type = type;
    record.l_whence = SEEK_SET;
    if (fcntl(fd, command, &record) == 0) return fd;
    close(fd);
    return -1;
}

/// Runs `body`, which has expectations, in a child.
template <class Body>
void expectInChild(Body body) {
    EXPECT_EQ(inChild([&] {
                  body();
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
}

constexpr unsigned int nobody = 65534;

/// In a child, where root becomes another user, who may do what anybody may, and what `group` may.
inline void becomeNobody(gid_t group = nobody, uid_t user = nobody) {
    if (geteuid() != 0) return;
    ASSERT_EQ(setgroups(1, &group), 0);
    ASSERT_EQ(setgid(nobody), 0);
    ASSERT_EQ(setuid(user), 0);
}

[[nodiscard]] inline struct stat statusOf(std::string const& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status;
}

inline void setTime(std::string const& path, long seconds) {
    timespec const times[] = {{seconds, 0}, {seconds, 0}};
    EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

}  // namespace testsupport

#endif
