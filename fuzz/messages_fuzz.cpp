// Exceptions of any number with any inserts, whether they fit the number's text or not: the text,
// the parts that a message service gets and the report on standard error are what a slow renderer
// makes of them, which takes no insert for a format.
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZMessage.h"
#include "Z/ZMessageParts.h"
#include "Z/exceptions/messages.h"
#include "fuzz_input.h"

namespace {

using fuzz::expect;
using fuzz::Input;
using Kind = ZZException::InsertKind;

struct Insert {
    Kind kind;
    std::string text;
    bool isNull;  // in place of the text
    int number;

    [[nodiscard]] char const* pointer() const { return isNull ? nullptr : text.c_str(); }
    [[nodiscard]] std::string shown() const {
        if (kind == Kind::number) return std::to_string(number);
        return isNull ? "(null)" : text;
    }
};
using Inserts = std::vector<Insert>;

/// Calls `take` with each insert as an argument of its own type; with most of them as texts.
constexpr std::size_t mostTyped = 5;  // as the longest message has
template <class Take, class... Taken>
void passOn(Inserts const& inserts, Take const& take, Taken... taken) {
    if constexpr (sizeof...(Taken) < mostTyped) {
        if (sizeof...(Taken) == inserts.size()) return take(taken...);
        Insert const& next = inserts[sizeof...(Taken)];
        if (next.kind == Kind::number) return passOn(inserts, take, taken..., next.number);
        return passOn(inserts, take, taken..., next.pointer());
    } else {
        take(taken...);
    }
}

/// An exception as a program may have it.
class Own final : public ZZException {
  public:
    Own(int number, Inserts const& given) : ZZException(number, "Own"), inserts(given) {}
    [[nodiscard]] ZObject* clone() const override { return new Own(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
    void print() override {
        passOn(inserts, [this](auto... each) { printinternal(this, each...); });
    }

  private:
    Inserts inserts;
};

/// One with more inserts than a report has.
class Many final : public ZZException {
  public:
    Many(int number, char const* each) : ZZException(number, "Many"), text(each) {}
    [[nodiscard]] ZObject* clone() const override { return new Many(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
    void print() override {
        auto* const t = text;
        printinternal(this, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t);
    }

  private:
    char const* text;
};

std::string rendered(unsigned long number, Inserts const& inserts) {
    char const* text = defaultText(number);
    std::string result;
    for (std::size_t next = 0; text != nullptr && *text != '\0'; ++text) {
        if (*text != '%') {
            result += *text;
            continue;
        }
        ++text;
        if (next < inserts.size()) result += inserts[next++].shown();
    }
    return result;
}

/// Takes what is reported apart.
class Watching final : public ZMessageService {
  public:
    void outputMessage(char const*, int, int, int, ZLCString const*, ZLCString const*,
                       ZLCString const*, ZLCString const*, ZLCString const*,
                       ZLCString const*) const override {}
    void outputMessageUTF8(char const*, int, int, int, ZUTF8String const*, ZUTF8String const*,
                           ZUTF8String const*, ZUTF8String const*, ZUTF8String const*,
                           ZUTF8String const*) const override {}
    void outputException(ZException& e) const override { e.print(); }
    void outputException(ZZException const* e, va_list args) const override {
        ZMessageParts const parts(*e, args);
        text = parts.getText().getChars();
        inserts.clear();
        for (int i = 0; i < parts.getInsertCount(); ++i) {
            char const* const words = parts.getInsertText(i);
            inserts.push_back({parts.getInsertKind(i), words == nullptr ? "" : words,
                               words == nullptr, parts.getInsertNumber(i)});
        }
    }

    mutable std::string text;
    mutable Inserts inserts;
};

bool areSame(Insert const& one, Insert const& other) {
    return one.kind == other.kind && one.shown() == other.shown();
}

void checkParts(ZException& exception, Inserts const& inserts, std::string const& text) {
    Watching const service;
    ZMessageService::setMessageService(&service);
    exception.dumpException();
    ZMessageService::setMessageService(nullptr);
    expect(service.text == text, "another text for a message service");
    expect(std::equal(service.inserts.begin(), service.inserts.end(), inserts.begin(),
                      inserts.end(), areSame),
           "other inserts for a message service");
}

/// What `body` writes to the stream of standard error; the sanitizers write to its descriptor.
template <class Body>
std::string reported(Body body) {
    char* text = nullptr;
    std::size_t length = 0;
    FILE* const before = stderr;
    stderr = open_memstream(&text, &length);
    body();
    fclose(stderr);
    stderr = before;
    std::string const result(text, length);
    std::free(text);
    return result;
}

std::string threadLine() { return " Thread: " + std::to_string(ZMessageParts::getThread()) + "\n"; }

void checkReport(ZException& exception, std::string const& text) {
    std::string const head =
        std::string("Exception: ") + exception.getName() +
        "\n File: \"(null)\" 0\n Error: " + std::to_string(static_cast<int>(exception.getCode())) +
        "\n" + threadLine() + "NUM_MSGS = " + std::to_string(ZDefaultMessageService::NUM_MSGS) +
        "\n";
    bool const hasText = defaultText(exception.getCode()) != nullptr;
    std::string const report = reported([&] { exception.dumpException(); });
    expect(report == head + (hasText ? text
                                     : "No default text defined in ZMessage.cpp for the "
                                       "exception\n"),
           "another report");
}

void check(ZException& exception, Inserts const& inserts) {
    std::string const text = rendered(exception.getCode(), inserts);
    expect(exception.text() == ZLCString(text.c_str()), "another text");
    checkParts(exception, inserts, text);
    checkReport(exception, text);
}

/// As a service hands a report on by itself, with inserts as the default text names them.
void handOn(ZZException const* e, ...) {
    va_list args;
    va_start(args, e);
    ZMessageService::routeZZException(e, args);
    va_end(args);
}

void checkHandedOn(ZZException const& exception, Inserts inserts) {
    char const* text = defaultText(exception.getCode());
    Inserts fitting;
    while (text != nullptr && (text = std::strchr(text, '%')) != nullptr) {
        if (inserts.empty()) inserts.push_back({Kind::text, "%s%d", false, 7});
        fitting.push_back(inserts[fitting.size() % inserts.size()]);
        fitting.back().kind = text[1] == 'd' ? Kind::number : Kind::text;
        ++text;
    }
    Watching const service;
    ZMessageService::setMessageService(&service);
    passOn(fitting, [&](auto... each) { handOn(&exception, each...); });
    ZMessageService::setMessageService(nullptr);
    expect(service.text == rendered(exception.getCode(), fitting), "another text is handed on");
}

/// A report of no exception: its texts are lines.
void checkMessage(int line, int number, int count, Inserts const& inserts) {
    std::vector<ZLCString> texts;
    for (auto const& insert : inserts)
        texts.emplace_back(insert.text.c_str());
    std::string lines;
    ZLCString const* pointers[6] = {};
    for (std::size_t i = 0; i < 6; ++i) {
        bool const isThere = i < inserts.size() && !inserts[i].isNull;
        if (isThere) pointers[i] = &texts[i];
        if (static_cast<long>(i) < count) lines += (isThere ? inserts[i].text : "") + "\n";
    }
    if (count > 0) lines.insert(0, "Additional Information:\n");
    std::string const report = reported([&] {
        ZMessageService::messageService()->outputMessage("file", line, number, count, pointers[0],
                                                         pointers[1], pointers[2], pointers[3],
                                                         pointers[4], pointers[5]);
    });
    expect(report == "Error: " + std::to_string(number) + "\n File: \"file\" " +
                         std::to_string(line) + "\n" + threadLine() + lines,
           "another report of a message");
}

Inserts insertsOf(Input& input) {
    Inserts inserts;
    while (inserts.size() < mostTyped && !input.isAtEnd()) {
        Insert next{Kind::text, {}, false, 0};
        unsigned int const kind = input.below(4);
        if (kind == 0) next.kind = Kind::number;
        if (kind == 0) next.number = input.number<int>();
        if (kind > 1) next.text = input.text();
        next.isNull = kind == 1;
        inserts.push_back(next);
    }
    return inserts;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("LC_ALL", "ja_JP.eucJP", 1);  // inserts are no text of it, mostly
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input input(data, size);
    unsigned int const which = input.byte();
    int const number = which < 128 ? static_cast<int>(which) % 64 : input.number<int>();
    int const count = static_cast<signed char>(input.byte());
    Inserts const inserts = insertsOf(input);
    Own own(number, inserts);
    check(own, inserts);
    checkHandedOn(own, inserts);
    checkMessage(static_cast<int>(which), number, count, inserts);
    if (inserts.empty()) return 0;
    Many many(number, inserts[0].pointer());
    Insert each = inserts[0];
    each.kind = Kind::text;
    check(many, Inserts(ZMessageParts::mostInserts, each));
    return 0;
}
