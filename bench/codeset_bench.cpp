// Codesets: walking characters, checking UTF-8, and conversion beside other libraries. Text is made
// of words drawn at random, since branch prediction learns a text that repeats itself.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>

#include <QString>
#include <QTextCodec>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Z/ZBuffer.h"
#include "Z/ZQCSUTF8Converter.h"
#include "Z/ZStringIterator.h"
#include "Z/ZUTF8String.h"
#include "Z/zqcsutil.h"

namespace {

using benchmark::DoNotOptimize;
using benchmark::State;
using Words = std::vector<std::string>;

[[maybe_unused]] int const environment =
    setenv("QCSDIR", ZFC_BENCH_QCSDIR, 0) + setenv("LC_ALL", "C.UTF-8", 1);

Words const ascii{"timeout ", "of ", "the ", "connection ", "to ", "service ", "in ", "seconds "};
Words const latin{"Größe ", "der ",       "Übertragung ", "überschreitet ",
                  "das ",   "zulässige ", "Höchstmaß, ",  "weil ",
                  "mehr ",  "Zeichen ",   "gelesen ",     "würden ",
                  "als ",   "diese ",     "Datei ",       "enthält. "};
Words const japanese{"ファイル", "の",   "転送", "が",   "終了",         "しました", "。", "エラー",
                     "設定",     "確認", "を",   "読み", "してください", "、",       "12", "中"};

/// Words up to that many bytes, and blanks where no word fits.
std::string textOf(Words const& words, std::size_t bytes) {
    std::mt19937 random(7);
    std::string text;
    for (;;) {
        std::string const& word = words[random() % words.size()];
        if (text.size() + word.size() > bytes) break;
        text += word;
    }
    text.resize(bytes, ' ');
    return text;
}

std::size_t sizeOf(State const& state) { return static_cast<std::size_t>(state.range(0)); }

void countBytes(State& state, std::size_t bytes) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

// ------------------------------------------------------------------ walk the characters, 1 MiB
// Every character goes into a string here; the others only find where it ends, the floor by ICU.

std::string walkedText() { return textOf(latin, 1024 * 1024); }

void walkOurs(State& state) {
    ZUTF8String const source(walkedText().c_str());
    ZUTF8String character;
    for (auto _ : state) {
        ZStringIterator iterator(source, character);
        while (iterator.hasMore())
            DoNotOptimize(iterator.getNext());
    }
}
BENCHMARK(walkOurs)->Name("walk the characters, 1 MiB/ours");

/// Counts characters; `step` gives the bytes of one.
template <class Step>
void walk(State& state, Step&& step) {
    std::string const text = walkedText();
    for (auto _ : state) {
        unsigned count = 0;
        for (std::size_t at = 0; at < text.size(); ++count)
            at += step(text.data() + at, text.size() - at);
        DoNotOptimize(count);
    }
}

void walkMbrlen(State& state) {
    setlocale(LC_CTYPE, "C.UTF-8");
    std::mbstate_t shift{};
    walk(state, [&](char const* p, std::size_t n) { return std::mbrlen(p, n, &shift); });
}
BENCHMARK(walkMbrlen)->Name("walk the characters, 1 MiB/mbrlen");

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"  // within the macro
void walkFloor(State& state) {
    walk(state, [](char const* p, std::size_t n) {
        int at = 0;
        UChar32 code = 0;
        U8_NEXT(p, at, static_cast<int>(n), code);
        DoNotOptimize(code);
        return static_cast<std::size_t>(at);
    });
}
#pragma GCC diagnostic pop
BENCHMARK(walkFloor)->Name("walk the characters, 1 MiB/floor");

// ---------------------------------------------------------------------------- checked UTF-8 copy
// ICU and Qt have no copy that stays UTF-8: they check while they decode into 16-bit units.

void copyOurs(State& state, Words const& words) {
    std::string const text = textOf(words, sizeOf(state));
    std::string out(text.size(), '\0');
    auto const size = static_cast<unsigned>(text.size());
    for (auto _ : state)
        DoNotOptimize(zlcs_to_utf8(text.data(), size, out.data(), size));
    countBytes(state, text.size());
}

void copyGlib(State& state, Words const& words) {
    std::string const text = textOf(words, sizeOf(state));
    std::string out(text.size(), '\0');
    for (auto _ : state) {
        if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr))
            std::memcpy(out.data(), text.data(), text.size());
        benchmark::ClobberMemory();
    }
    countBytes(state, text.size());
}

void copyIcu(State& state, Words const& words) {
    std::string const text = textOf(words, sizeOf(state));
    std::vector<UChar> out(text.size());
    for (auto _ : state) {
        UErrorCode error = U_ZERO_ERROR;
        int length = 0;
        u_strFromUTF8(out.data(), static_cast<int>(out.size()), &length, text.data(),
                      static_cast<int>(text.size()), &error);
        DoNotOptimize(error);
        benchmark::ClobberMemory();
    }
    countBytes(state, text.size());
}

void copyQt(State& state, Words const& words) {
    std::string const text = textOf(words, sizeOf(state));
    QTextCodec const* const codec = QTextCodec::codecForName("UTF-8");
    for (auto _ : state) {
        QTextCodec::ConverterState errors;
        DoNotOptimize(codec->toUnicode(text.data(), static_cast<int>(text.size()), &errors));
        DoNotOptimize(errors.invalidChars);
    }
    countBytes(state, text.size());
}

void copyFloor(State& state, Words const& words) {  // unchecked
    std::string const text = textOf(words, sizeOf(state));
    std::string out(text.size(), '\0');
    for (auto _ : state) {
        std::memcpy(out.data(), text.data(), text.size());
        benchmark::ClobberMemory();
    }
    countBytes(state, text.size());
}

// ------------------------------------------------------------------------------------ conversion

std::string localText(char const* codeset, Words const& words, std::size_t bytes) {
    ZQCSUTF8Converter converter(codeset, nullptr);
    Words local;
    for (auto const& word : words) {
        ZBuffer out;
        converter.convertToLocal(word.c_str(), out);
        local.emplace_back(static_cast<char const*>(out.getBuffer()), out.getLength() - 1);
    }
    return textOf(local, bytes);
}

struct Route {
    char const* codeset;
    Words const& words;
    bool toUtf8;

    [[nodiscard]] std::string text(State const& state) const {
        return toUtf8 ? localText(codeset, words, sizeOf(state)) : textOf(words, sizeOf(state));
    }
};

void convertOurs(State& state, Route const& route) {
    std::string const text = route.text(state);
    ZQCSUTF8Converter converter(route.codeset, nullptr);
    ZBuffer out;
    for (auto _ : state) {
        if (route.toUtf8)
            converter.convertToUTF8(text.c_str(), out);
        else
            converter.convertToLocal(text.c_str(), out);
        benchmark::ClobberMemory();
    }
    countBytes(state, text.size());
}

struct CloseConverter {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using IcuConverter = std::unique_ptr<UConverter, CloseConverter>;

void convertIcu(State& state, Route const& route) {
    std::string const text = route.text(state);
    UErrorCode error = U_ZERO_ERROR;
    IcuConverter const local(ucnv_open(route.codeset, &error));
    IcuConverter const utf8(ucnv_open("UTF-8", &error));
    UConverter* const from = route.toUtf8 ? local.get() : utf8.get();
    UConverter* const to = route.toUtf8 ? utf8.get() : local.get();
    std::vector<char> out(text.size() * 3);
    std::vector<UChar> between(1024);
    for (auto _ : state) {
        char const* source = text.data();
        char* target = out.data();
        UChar* read = between.data();
        UChar* written = between.data();
        ucnv_convertEx(to, from, &target, target + out.size(), &source, source + text.size(),
                       between.data(), &read, &written, between.data() + between.size(), true, true,
                       &error);
        benchmark::ClobberMemory();
    }
    if (U_FAILURE(error)) state.SkipWithError(u_errorName(error));
    countBytes(state, text.size());
}

void convertQt(State& state, Route const& route) {
    std::string const text = route.text(state);
    QTextCodec const* const codec = QTextCodec::codecForName(route.codeset);
    auto const size = static_cast<int>(text.size());
    for (auto _ : state)
        DoNotOptimize(route.toUtf8 ? codec->toUnicode(text.data(), size).toUtf8()
                                   : codec->fromUnicode(QString::fromUtf8(text.data(), size)));
    countBytes(state, text.size());
}

void convertFloor(State& state, Route const& route) {  // copies the answer
    std::string const text = route.text(state);
    ZQCSUTF8Converter converter(route.codeset, nullptr);
    ZBuffer answer;
    if (route.toUtf8)
        converter.convertToUTF8(text.c_str(), answer);
    else
        converter.convertToLocal(text.c_str(), answer);
    std::vector<char> out(answer.getLength());
    for (auto _ : state) {
        std::memcpy(out.data(), answer.getBuffer(), out.size());
        benchmark::ClobberMemory();
    }
    countBytes(state, text.size());
}

Route const latin1ToUtf8{"ISO-8859-1", latin, true};
Route const utf8ToLatin1{"ISO-8859-1", latin, false};
Route const utf8ToShiftJis{"Shift_JIS", japanese, false};
Route const shiftJisToUtf8{"Shift_JIS", japanese, true};

template <class Body, class Argument>
void addRow(std::string const& name, Argument const& argument, std::vector<std::int64_t> sizes,
            std::vector<std::pair<char const*, Body>> const& sides) {
    for (auto const& [side, body] : sides)
        for (auto const size : sizes)
            benchmark::RegisterBenchmark((name + "/" + side).c_str(), body, argument)->Arg(size);
}

using Copy = void (*)(State&, Words const&);
using Convert = void (*)(State&, Route const&);

[[maybe_unused]] int const rows = [] {
    std::vector<std::pair<char const*, Copy>> const copies{{"ours", copyOurs},
                                                           {"qt", copyQt},
                                                           {"icu", copyIcu},
                                                           {"glib", copyGlib},
                                                           {"floor", copyFloor}};
    addRow("checked UTF-8 copy, ASCII", std::cref(ascii), {65536}, copies);
    addRow("checked UTF-8 copy, Latin", std::cref(latin), {65536}, copies);
    addRow("checked UTF-8 copy, Japanese", std::cref(japanese), {65536}, copies);
    std::vector<std::pair<char const*, Convert>> const conversions{
        {"ours", convertOurs}, {"qt", convertQt}, {"icu", convertIcu}, {"floor", convertFloor}};
    addRow("ISO8859-1 to UTF-8", std::cref(latin1ToUtf8), {65536}, conversions);
    addRow("UTF-8 to ISO8859-1", std::cref(utf8ToLatin1), {65536}, conversions);
    addRow("UTF-8 to Shift_JIS", std::cref(utf8ToShiftJis), {64, 65536}, conversions);
    addRow("Shift_JIS to UTF-8", std::cref(shiftJisToUtf8), {64, 65536}, conversions);
    return 0;
}();

}  // namespace
