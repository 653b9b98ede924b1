#include "Z/ZMessageParts.h"

#include <pthread.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "Z/ZLCString.h"
#include "Z/exceptions/messages.h"
#include "Z/exceptions/report.h"

namespace {

constexpr char sourceName[] = "src/Z/ZMessageParts";

using Kind = ZZException::InsertKind;

Kind kindOf(char placeholder) { return placeholder == 'd' ? Kind::number : Kind::text; }

/// The kinds that the default text names; their number. The table holds "%s" and "%d" alone.
int kindsNamed(char const* text, std::array<Kind, ZMessageParts::mostInserts>& kinds) {
    std::size_t count = 0;
    while (text != nullptr && (text = std::strchr(text, '%')) != nullptr && count < kinds.size()) {
        kinds.at(count++) = kindOf(text[1]);
        text += 2;
    }
    return static_cast<int>(count);
}

void appendTo(void* string, char const* piece, unsigned int length) {
    static_cast<ZLCString*>(string)->append(piece, length);
}

}  // namespace

ZMessageParts::ZMessageParts(ZZException const& exception, va_list values) : reported(&exception) {
    std::array<Kind, mostInserts> named{};
    Kind const* kinds = named.data();
    // The caller vouches for the text's own placeholders where nothing was announced.
    if (auto const* const passed = ZReportScope::find(&exception)) {
        kinds = passed->kinds;
        count = std::min(passed->count, mostInserts);
    } else {
        count = kindsNamed(defaultText(exception.getCode()), named);
    }
    for (int i = 0; i < count; ++i) {
        auto& insert = inserts.at(static_cast<std::size_t>(i));
        insert.kind = kinds[i];
        if (kinds[i] == Kind::number)
            insert.number = va_arg(values, int);
        else
            insert.text = va_arg(values, char const*);
    }
}

int ZMessageParts::getThread() {
    return static_cast<int>(static_cast<std::uintptr_t>(pthread_self()));
}

ZMessageParts::Insert const& ZMessageParts::insertAt(int index) const {
    if (index < 0 || index >= count) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    return inserts.at(static_cast<std::size_t>(index));
}

Kind ZMessageParts::getInsertKind(int index) const { return insertAt(index).kind; }
char const* ZMessageParts::getInsertText(int index) const { return insertAt(index).text; }
int ZMessageParts::getInsertNumber(int index) const { return insertAt(index).number; }

bool ZMessageParts::putText(void (*put)(void*, char const*, unsigned int), void* context) const {
    char const* text = defaultText(getNumber());
    if (text == nullptr) return false;
    auto const putPiece = [&](char const* piece, std::size_t length) {
        put(context, piece, static_cast<unsigned int>(length));
    };
    // Not by a format: an exception class may bring fewer inserts, or others, than its text names.
    for (int next = 0; char const* const place = std::strchr(text, '%'); text = place + 2) {
        putPiece(text, static_cast<std::size_t>(place - text));
        if (next == count) continue;
        Insert const& insert = insertAt(next++);
        std::array<char, 12> digits{};
        char const* shown = insert.text == nullptr ? "(null)" : insert.text;
        if (insert.kind == Kind::number) {
            std::to_chars(digits.data(), digits.data() + digits.size() - 1, insert.number);
            shown = digits.data();
        }
        putPiece(shown, std::strlen(shown));
    }
    putPiece(text, std::strlen(text));
    return true;
}

ZLCString ZMessageParts::getText() const {
    ZLCString text;
    putText(appendTo, &text);
    return text;
}
