#include "qcs/qcs_locale.h"

#include <wctype.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qcs/qcs_cancellation.h"
#include "qcs/qcs_fork.h"
#include "qcs/qcs_names.h"

namespace qcs {
namespace {

locale_t makeLocale(int mask, char const* name) {
    locale_t const handle = newlocale(mask, name, nullptr);
    return handle != nullptr ? handle : newlocale(mask, "C", nullptr);
}

locale_t cLocale() {
    static locale_t const handle = newlocale(LC_ALL_MASK, "C", nullptr);
    return handle;
}

/// Locales of the process, by handle - 1. A slot is filled once and kept, so it is read without a
/// lock.
std::array<std::atomic<locale_t>, 256> slots{};

/// Made and used under the layer's lock.
class Locales {
  public:
    qcs_loc_handle handleOf(std::string const& name) {
        auto const known = std::find(names.begin(), names.end(), name);
        if (known != names.end()) return static_cast<qcs_loc_handle>(known - names.begin()) + 1;
        if (names.size() == slots.size()) return 0;
        // Both before the locale is made, which a lack of memory would lose.
        names.reserve(names.size() + 1);
        std::string kept = name;
        locale_t const made = newlocale(LC_ALL_MASK, name.c_str(), nullptr);
        if (made == nullptr) return 0;
        slots[names.size()].store(made, std::memory_order_release);
        names.push_back(std::move(kept));
        return static_cast<qcs_loc_handle>(names.size());
    }

  private:
    std::vector<std::string> names;
};

Locales& locales() {
    static auto& instance = *new Locales;  // never destroyed: text is handled to the very end
    return instance;
}

/// Writes `text` with its NUL; -1 when it is empty or does not fit.
int deliver(std::string_view text, char* out, unsigned int size) {
    if (out == nullptr || text.empty() || text.size() >= size) return -1;
    *std::copy(text.begin(), text.end(), out) = 0;
    return 0;
}

template <class Body>
int delivered(char* out, unsigned int size, Body&& name) {
    CancellationOff const wholeNames;
    try {
        return deliver(name(), out, size);
    } catch (...) {  // out of memory
        return -1;
    }
}

}  // namespace

locale_t findLocale(qcs_loc_handle loc) {
    locale_t const found =
        loc == 0 || loc > slots.size() ? nullptr : slots[loc - 1].load(std::memory_order_acquire);
    return found != nullptr ? found : cLocale();
}

locale_t characterLocale() {
    static locale_t const handle = makeLocale(LC_CTYPE_MASK, "C.UTF-8");
    return handle;
}

CodePoint upperCase(CodePoint code) {
    // Most text, and spares the call.
    if (code < 0x80) return code >= 'a' && code <= 'z' ? code - 'a' + 'A' : code;
    // Undefined bytes and clusters are no code points: the system must not be asked about them.
    if (code > lastCodePoint) return code;
    return static_cast<CodePoint>(towupper_l(static_cast<wint_t>(code), characterLocale()));
}

CodePoint lowerCase(CodePoint code) {
    if (code < 0x80) return code >= 'A' && code <= 'Z' ? code - 'A' + 'a' : code;
    if (code > lastCodePoint) return code;
    return static_cast<CodePoint>(towlower_l(static_cast<wint_t>(code), characterLocale()));
}

}  // namespace qcs

void qcs_set_dir(char const* dir) {
    if (dir == nullptr) return;
    qcs::CancellationOff const wholeNames;
    try {
        qcs::setAliasDirectory(dir);
    } catch (...) {  // out of memory: the directory named before stays
    }
}

int qcs_os_lang_name(char* buffer, unsigned int size) {
    return qcs::delivered(buffer, size, [] { return qcs::environmentLocale(); });
}

int qcs_os_cs_name(char* buffer, unsigned int size) {
    return qcs::delivered(buffer, size, [] { return qcs::environmentCodeset(); });
}

int qcs_canonical_loc(char const* name, char* out, unsigned int size) {
    if (name == nullptr) return -1;
    return qcs::delivered(out, size, [=] { return qcs::canonicalLocale(name); });
}

int qcs_alias_fault(char* path, unsigned int pathSize, char* text, unsigned int textSize,
                    int* line) {
    qcs::CancellationOff const wholeNames;
    try {
        auto const fault = qcs::takeAliasFault();
        if (!fault) return 0;
        // What does not fit is left empty: the other parts still tell.
        *path = *text = '\0';
        static_cast<void>(qcs::deliver(fault->path, path, pathSize));
        static_cast<void>(qcs::deliver(fault->text.substr(0, textSize - 1), text, textSize));
        *line = fault->line;
        return 1;
    } catch (...) {  // out of memory: nothing more can be told
        return 0;
    }
}

qcs_loc_handle qcs_loc_new(char const* name) {
    if (name == nullptr) return 0;
    qcs::CancellationOff const wholeLocales;
    try {
        qcs::Guard const guard;
        std::string const canonical = qcs::canonicalLocale(name);
        return canonical.empty() ? 0 : qcs::locales().handleOf(canonical);
    } catch (...) {  // out of memory: there is no locale to be had
        return 0;
    }
}

char* qcs_strptime(qcs_cs_handle, qcs_loc_handle loc, char const* s, char const* format,
                   struct tm* tm) {
    if (s == nullptr || format == nullptr || tm == nullptr) return nullptr;
    return strptime_l(s, format, tm, qcs::findLocale(loc));
}

int qcs_iswupper(qcs_wchar wide) { return iswupper_l(wide, qcs::characterLocale()); }

int qcs_iswlower(qcs_wchar wide) { return iswlower_l(wide, qcs::characterLocale()); }

int qcs_iswspace(qcs_wchar wide) { return iswspace_l(wide, qcs::characterLocale()); }

int qcs_iswdigit(qcs_wchar wide) { return iswdigit_l(wide, qcs::characterLocale()); }

int qcs_iswalpha(qcs_wchar wide) { return iswalpha_l(wide, qcs::characterLocale()); }

int qcs_iswalnum(qcs_wchar wide) { return iswalnum_l(wide, qcs::characterLocale()); }
