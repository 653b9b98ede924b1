/// Streams over texts, for what reads and writes a FILE*.
#ifndef ZFC_TESTS_SUPPORT_STREAMS_H
#define ZFC_TESTS_SUPPORT_STREAMS_H

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace testsupport {

struct CloseFile {
    void operator()(FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, CloseFile>;

/// A file of these bytes, open for reading at its beginning.
[[nodiscard]] inline Stream fileOf(std::string const& bytes) {
    Stream stream(std::tmpfile());
    std::fwrite(bytes.data(), 1, bytes.size(), stream.get());
    std::rewind(stream.get());
    return stream;
}

/// What `write(FILE*)` writes.
template <class Write>
[[nodiscard]] std::string writtenBy(Write write) {
    char* bytes = nullptr;
    std::size_t length = 0;
    std::unique_ptr<char*, void (*)(char**)> const block(&bytes, [](char** b) { std::free(*b); });
    Stream stream(open_memstream(&bytes, &length));
    write(stream.get());
    stream.reset();
    return {bytes, length};
}

}  // namespace testsupport

#endif
