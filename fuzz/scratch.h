/// A directory that a run may fill, and what a fuzzer may not get at from there.
#ifndef ZFC_FUZZ_SCRATCH_H
#define ZFC_FUZZ_SCRATCH_H

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "fuzz_input.h"

namespace fuzz {

/// Everything is gone with the object. Its directory has another one of its own above it, for what
/// is done to "..".
class Scratch {
  public:
    Scratch() : top(made()), directory(top / "work") {
        std::filesystem::create_directory(directory);
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(top, ignored);
    }
    Scratch(Scratch const&) = delete;
    Scratch& operator=(Scratch const&) = delete;

    [[nodiscard]] std::string path(std::string const& name = {}) const {
        return name.empty() ? directory.string() : (directory / name).string();
    }
    void write(std::string const& name, std::string const& bytes) const {
        std::ofstream stream(path(name), std::ios::binary);
        stream << bytes;
        stream.close();
        expect(stream.good(), "a file that cannot be written");
    }
    void clear() const {
        for (auto const& entry : std::filesystem::directory_iterator(directory))
            std::filesystem::remove_all(entry.path());
    }
    /// The bytes of every file, by name; a directory has a slash behind its name.
    [[nodiscard]] std::map<std::string, std::string> content() const {
        std::map<std::string, std::string> files;
        for (auto const& entry : std::filesystem::recursive_directory_iterator(directory)) {
            std::string const name = entry.path().lexically_relative(directory).string();
            if (entry.is_regular_file())
                files[name] = bytesOf(entry.path());
            else
                files[name + "/"];
        }
        return files;
    }

  private:
    /// In memory where there is such a place, because stores wait for the device.
    static std::filesystem::path made() {
        std::filesystem::path const memory = "/dev/shm";
        bool const isThere = access(memory.c_str(), W_OK) == 0;
        std::string name =
            (isThere ? memory : std::filesystem::temp_directory_path()) / "zfc-fuzz-XXXXXX";
        expect(mkdtemp(name.data()) != nullptr, "no directory for files");
        return name;
    }
    static std::string bytesOf(std::filesystem::path const& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }

    std::filesystem::path top;
    std::filesystem::path directory;
};

/// The working directory, for its scope: relative names are files of it.
class Inside {
  public:
    explicit Inside(Scratch const& scratch) : before(open(".", O_PATH | O_CLOEXEC)) {
        expect(before >= 0 && chdir(scratch.path().c_str()) == 0, "a directory to work in");
    }
    ~Inside() {
        expect(fchdir(before) == 0, "a directory to return to");
        close(before);
    }
    Inside(Inside const&) = delete;
    Inside& operator=(Inside const&) = delete;

  private:
    int before;
};

/// The text without "/", as it is and as the escape of a properties file, so that no name made of
/// it leads out of the working directory.
inline std::string confined(std::string text) {
    std::replace(text.begin(), text.end(), '/', '|');
    for (char const* const escape : {"002f", "002F"})
        for (auto at = text.find(escape); at != std::string::npos; at = text.find(escape, at))
            text[at] = 'x';
    return text;
}

}  // namespace fuzz

#endif
