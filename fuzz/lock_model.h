/// A lock file's bytes, and what they mean, apart from the library.
#ifndef ZFC_FUZZ_LOCK_MODEL_H
#define ZFC_FUZZ_LOCK_MODEL_H

#include <algorithm>
#include <cstring>
#include <string>

namespace fuzz {

struct LockModel {
    std::string bytes;

    /// Empty, or with both words.
    [[nodiscard]] bool isWhole() const { return bytes.empty() || bytes.size() >= 8; }
    [[nodiscard]] unsigned int number() const { return wordAt(0); }
    [[nodiscard]] int pid() const { return static_cast<int>(wordAt(4)); }
    void setNumber(unsigned int number) { setWord(0, number); }
    void setPid(int pid) { setWord(4, static_cast<unsigned int>(pid)); }
    /// FFFFFFFF is no number.
    [[nodiscard]] static unsigned int after(unsigned int number) {
        return number >= 0xFFFFFFFEU ? 0 : number + 1;
    }

  private:
    [[nodiscard]] unsigned int wordAt(std::size_t at) const {
        unsigned int word = 0;
        if (bytes.size() > at)
            std::memcpy(&word, bytes.data() + at, std::min(sizeof word, bytes.size() - at));
        return word;
    }
    void setWord(std::size_t at, unsigned int word) {
        bytes.resize(std::max(bytes.size(), at + sizeof word));
        std::memcpy(bytes.data() + at, &word, sizeof word);
    }
};

}  // namespace fuzz

#endif
