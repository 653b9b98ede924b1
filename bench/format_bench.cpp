// The printf engine beside others. What is formatted is hidden from the compiler, which would fold
// it into the C library's calls; formats are literals where a peer reads them at compile time.
//
// Where our time goes: a third reads the format and fetches the arguments, a third writes digits
// and copies text, the rest is the call. Most doubles of %f are converted here; all other floating
// numbers are the C library's work on both sides.
#include <absl/strings/str_format.h>
#include <apr_strings.h>
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>

#include "Z/zasprintf.h"
#include "Z/zsnprintf.h"

namespace {

/// Strings need a codeset directory; the one of this tree serves where none is given.
int const environment = setenv("QCSDIR", ZFC_BENCH_QCSDIR, 0);

constexpr std::size_t roomSize = 256;

/// benchmark::DoNotOptimize() would do, but makes some values wrong with g++ 12.
template <class Value>
Value hidden(Value value) {
    if constexpr (std::is_floating_point_v<Value>)
        asm volatile("" : "+m"(value));
    else
        asm volatile("" : "+r"(value));
    return value;
}

/// Registers one side of a row: `call` formats into the room that it is given.
template <class Call>
bool side(std::string const& name, Call call) {
    benchmark::RegisterBenchmark(name.c_str(), [call](benchmark::State& state) {
        char room[roomSize];
        for (auto _ : state) {
            benchmark::DoNotOptimize(call(room));
            benchmark::ClobberMemory();
        }
    });
    return true;
}

// Macros, because Abseil has its formats checked at compile time.
#define POSIX_SIDES(row, format, ...)                                                           \
    side("format " row "/ours",                                                                 \
         [](char* out) { return zsnprintf(out, roomSize, hidden(format), __VA_ARGS__); }) &&    \
        side("format " row "/glibc",                                                            \
             [](char* out) { return snprintf(out, roomSize, hidden(format), __VA_ARGS__); }) && \
        side("format " row "/abseil",                                                           \
             [](char* out) { return absl::SNPrintF(out, roomSize, format, __VA_ARGS__); })
#define APR_SIDE(row, format, ...) \
    side("format " row "/apr",     \
         [](char* out) { return apr_snprintf(out, roomSize, hidden(format), __VA_ARGS__); })
#define FMT_SIDE(row, format, ...)                                                 \
    side("format " row "/fmt", [](char* out) {                                     \
        auto const end = fmt::format_to_n(out, roomSize - 1, format, __VA_ARGS__); \
        *end.out = '\0';                                                           \
        return end.size;                                                           \
    })

// ------------------------------------------------------------------------------------- the floors

char* put(char* to, char const* text) {
    std::size_t const length = std::strlen(text);
    std::memcpy(to, text, length);
    return to + length;
}
char* put(char* to, long number) { return std::to_chars(to, to + 24, number).ptr; }
char* put(char* to, char c) { return *to = c, to + 1; }

/// What `write` writes from `out` on, with a NUL: its length.
template <class Write>
long terminated(char* out, Write write) {
    char* const end = write(out);
    *end = '\0';
    return end - out;
}

/// `count` of `fill` and a number's last characters over them.
char* putRight(char* to, int count, char fill, unsigned number, int base) {
    char digits[24];
    auto const length = std::to_chars(digits, digits + sizeof(digits), number, base).ptr - digits;
    std::memset(to, fill, static_cast<std::size_t>(count));
    std::memcpy(to + count - length, digits, static_cast<std::size_t>(length));
    return to + count;
}

char* putLeft(char* to, int count, char const* text) {
    std::memset(to, ' ', static_cast<std::size_t>(count));
    return put(to, text), to + count;
}

// --------------------------------------------------------------------------------------- the rows

char const* name() { return hidden("connection-timeout"); }
char const* shortName() { return hidden("name"); }
int number() { return hidden(86400); }

bool const decimal = POSIX_SIDES("%d", "%d", number()) && APR_SIDE("%d", "%d", number()) &&
                     FMT_SIDE("%d", "{}", number()) && side("format %d/floor", [](char* out) {
                         return terminated(out, [](char* to) { return put(to, long{number()}); });
                     });

bool const text = POSIX_SIDES("%s", "%s", name()) && APR_SIDE("%s", "%s", name()) &&
                  FMT_SIDE("%s", "{}", name()) && side("format %s/floor", [](char* out) {
                      return terminated(out, [](char* to) { return put(to, name()); });
                  });

bool const hexadecimal =
    POSIX_SIDES("%08x", "%08x", hidden(0xBEEFU)) && APR_SIDE("%08x", "%08x", hidden(0xBEEFU)) &&
    FMT_SIDE("%08x", "{:08x}", hidden(0xBEEFU)) && side("format %08x/floor", [](char* out) {
        return terminated(out, [](char* to) { return putRight(to, 8, '0', hidden(0xBEEFU), 16); });
    });

#define TWO_FIELDS "%-20s|%10d"
bool const fields = POSIX_SIDES(TWO_FIELDS, TWO_FIELDS, shortName(), number()) &&
                    APR_SIDE(TWO_FIELDS, TWO_FIELDS, shortName(), number()) &&
                    FMT_SIDE(TWO_FIELDS, "{:<20}|{:>10}", shortName(), number()) &&
                    side("format " TWO_FIELDS "/floor", [](char* out) {
                        return terminated(out, [](char* to) {
                            to = put(putLeft(to, 20, shortName()), '|');
                            return putRight(to, 10, ' ', static_cast<unsigned>(number()), 10);
                        });
                    });

bool const positions = POSIX_SIDES("%2$s %1$s", "%2$s %1$s", shortName(), name()) &&
                       FMT_SIDE("%2$s %1$s", "{1} {0}", shortName(), name()) &&
                       side("format %2$s %1$s/floor", [](char* out) {
                           return terminated(out, [](char* to) {
                               return put(put(put(to, name()), ' '), shortName());
                           });
                       });

#define TWELVE "%d %s %x %u %c %ld %5d %-8s %08x %lu %s %d"
#define TWELVE_ARGUMENTS                                                                       \
    number(), name(), hidden(0xBEEFU), hidden(7U), hidden('c'), hidden(1234567890L), number(), \
        shortName(), hidden(255U), hidden(99UL), name(), number()
bool const twelve =
    POSIX_SIDES("twelve conversions", TWELVE, TWELVE_ARGUMENTS) &&
    APR_SIDE("twelve conversions", TWELVE, TWELVE_ARGUMENTS) &&
    FMT_SIDE("twelve conversions", "{} {} {:x} {} {} {} {:5} {:8} {:08x} {} {} {}",
             TWELVE_ARGUMENTS) &&
    side("format twelve conversions/floor", [](char* out) {
        return terminated(out, [](char* to) {
            to = put(put(put(to, long{number()}), ' '), name());
            to = std::to_chars(put(to, ' '), to + 24, hidden(0xBEEFU), 16).ptr;
            to = put(put(put(to, ' '), long{hidden(7)}), ' ');
            to = put(put(put(put(to, hidden('c')), ' '), hidden(1234567890L)), ' ');
            to = put(putRight(to, 5, ' ', static_cast<unsigned>(number()), 10), ' ');
            to =
                put(putRight(put(putLeft(to, 8, shortName()), ' '), 8, '0', hidden(255U), 16), ' ');
            to = put(put(put(put(to, hidden(99L)), ' '), name()), ' ');
            return put(to, long{number()});
        });
    });

bool const floating =
    POSIX_SIDES("%.3f", "%.3f", hidden(12345.6789)) &&
    APR_SIDE("%.3f", "%.3f", hidden(12345.6789)) &&
    FMT_SIDE("%.3f", "{:.3f}", hidden(12345.6789)) && side("format %.3f/floor", [](char* out) {
        return terminated(out, [](char* to) {
            return std::to_chars(to, to + 64, hidden(12345.6789), std::chars_format::fixed, 3).ptr;
        });
    });

bool const literal =
    POSIX_SIDES("a text alone", "a line of text that holds no specification at all%s", "") &&
    side("format a text alone/floor", [](char* out) {
        return terminated(out, [](char* to) {
            return put(to, hidden("a line of text that holds no specification at all"));
        });
    });

template <class Call>
bool allocating(std::string const& sideName, Call call) {
    return side("format into a new block/" + sideName, [call](char*) {
        char* made = nullptr;
        int const length = call(&made, hidden("%s=%d"), name(), number());
        benchmark::DoNotOptimize(made);
        std::free(made);
        return length;
    });
}
bool const blocks = allocating("ours", zasprintf) && allocating("glibc", asprintf);

}  // namespace
