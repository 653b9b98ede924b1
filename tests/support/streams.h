/// Streams over texts, for what reads and writes a FILE*.
#ifndef ZFC_TESTS_SUPPORT_STREAMS_H
#define ZFC_TESTS_SUPPORT_STREAMS_H

#include <cstdio>
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
    Stream const stream(std::tmpfile());
    write(stream.get());
    std::string bytes(static_cast<std::size_t>(std::ftell(stream.get())), '\0');
    std::rewind(stream.get());
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), stream.get()));
    return bytes;
}

}  // namespace testsupport

#endif
