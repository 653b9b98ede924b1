#include "Z/zqcsutil.h"

#include <locale.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstdlib>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/utility/cancellation_off.h"
#include "qcs/qcs.h"

namespace {

constexpr char sourceName[] = "src/Z/zqcsutil";
constexpr char defaultDirectory[] = "/opt/Quorvane/nls/QCS";

/// Why there are no codesets.
enum class Failure { none, noDirectory, noLocalCodeset, noUtf8 };

/// Written by zonce_init() alone. What is atomic is stored only when all is well, so a getter that
/// finds a value need not ask whether the initialisation has run.
pthread_once_t qcs_once = PTHREAD_ONCE_INIT;
char const* qcsdir_ = nullptr;  // value of QCSDIR; null: unset
// Room for the longest there are: names have parts of 255 bytes at most.
std::array<char, 1024> localeName{};  // canonical name of the locale; empty: unknown
std::array<char, 256> codesetName{};  // name of the local codeset; empty: unknown
Failure failure = Failure::none;
int qcs_rc = 0;                                       // last return code of the codeset layer
std::atomic<char const*> locstring_{nullptr};         // localeName; null: not set up
std::atomic<char const*> csname_{nullptr};            // codesetName; null: not set up
std::atomic<qcs_loc_handle> local_locale_handle_{0};  // 0: none is installed, or not set up
std::atomic<int> localGreatest{1};                    // bytes of the longest local character
std::atomic<ZCodesetHandle> zutf8_codeset_{0};        // 0: not set up
std::atomic<ZCodesetHandle> zlocal_codeset_{0};       // 0: not set up

std::atomic<bool> directoryChosen{false};  // by zset_cs_dir()

void findDirectory() {
    qcsdir_ = getenv("QCSDIR");
    // A program may choose before the first string does this.
    if (!directoryChosen.load()) qcs_set_dir(qcsdir_ != nullptr ? qcsdir_ : defaultDirectory);
}

/// False when the environment's locale has no usable name.
bool findLocale() {
    std::array<char, localeName.size()> asked{};
    qcs_rc = qcs_os_lang_name(asked.data(), asked.size());
    if (qcs_rc == 0) qcs_rc = qcs_canonical_loc(asked.data(), localeName.data(), localeName.size());
    return qcs_rc == 0;
}

ZCodesetHandle findLocalCodeset() {
    qcs_rc = qcs_os_cs_name(codesetName.data(), codesetName.size());
    return qcs_rc == 0 ? qcs_cs_new(codesetName.data()) : 0;
}

Failure setUp() {
    // Comparing strings and white space go by the process's locale.
    setlocale(LC_ALL, "");
    findDirectory();
    if (qcsdir_ == nullptr) return Failure::noDirectory;
    ZCodesetHandle const local = findLocale() ? findLocalCodeset() : 0;
    if (local == 0) return Failure::noLocalCodeset;
    ZCodesetHandle const utf8 = qcs_cs_new("UTF8");
    if (utf8 == 0) return Failure::noUtf8;
    locstring_ = localeName.data();
    csname_ = codesetName.data();
    local_locale_handle_ = qcs_loc_new(localeName.data());
    localGreatest = qcs_mb_max(local);
    // The handles go last: zmblen() takes a local handle for a sign that localGreatest is set.
    zutf8_codeset_ = utf8;
    zlocal_codeset_ = local;
    return Failure::none;
}

void zonce_init() {
    // For setlocale(), whose own lock would stay taken in the child of a fork.
    qcs_lock();
    failure = setUp();
    qcs_unlock();
}

/// The exceptions and the message service hold strings, and strings ask for handles. While this
/// thread makes the report that there are none, it is given none instead of another report.
thread_local bool isReporting = false;

class ReportScope {
  public:
    ReportScope() { isReporting = true; }
    ~ReportScope() { isReporting = false; }
    ReportScope(ReportScope const&) = delete;
    ReportScope& operator=(ReportScope const&) = delete;
};

void report(ZZException&& exception, int line) {
    exception.addLocation(sourceName, static_cast<unsigned long>(line));
    zreportException(exception);
}

void reportFailure() {
    ReportScope const scope;
    zreportAliasFault(sourceName, __LINE__);
    if (failure == Failure::noDirectory) report(ZNoQCSEnvironmentException(), __LINE__);
    if (failure == Failure::noLocalCodeset) report(ZCodesetException(codesetName.data()), __LINE__);
    if (failure == Failure::noUtf8) report(ZCodesetException("UTF8"), __LINE__);
}

/// Sets the codesets up unless that has been tried; false, after a report, when there are none.
bool commonInit() {
    ZCancellationOff const whileReadingFiles;  // what catches everything there ends the process
    pthread_once(&qcs_once, zonce_init);
    if (failure != Failure::none) return reportFailure(), false;
    zreportAliasFault(sourceName, __LINE__);
    return true;
}

/// What `value` holds once the codesets are set up; its empty value when they cannot be.
template <class Value>
Value afterInit(std::atomic<Value> const& value) {
    Value const known = value.load(std::memory_order_acquire);
    if (known != Value{} || isReporting) return known;
    return commonInit() ? value.load(std::memory_order_acquire) : Value{};
}

ZCodesetHandle handleOrAbort(std::atomic<ZCodesetHandle> const& handle) {
    ZCodesetHandle const known = afterInit(handle);
    if (known == 0 && !isReporting) abort();
    return known;
}

qcs_loc_handle localLocale() { return local_locale_handle_.load(std::memory_order_acquire); }

using Classification = int (*)(qcs_wchar);

int lengthIf(Classification isOfClass, ZCodesetHandle cs, char const* p, unsigned int n) {
    qcs_wchar wide = 0;
    int const length = qcs_mbtowc(cs, &wide, p, n);
    return length > 0 && isOfClass(wide) != 0 ? length : 0;
}

}  // namespace

ZCodesetHandle zgetLCSHandle() { return handleOrAbort(zlocal_codeset_); }
ZCodesetHandle zgetUTF8Handle() { return handleOrAbort(zutf8_codeset_); }
char const* zgetLocalCodesetName() { return afterInit(csname_); }
char const* zgetlocale() { return afterInit(locstring_); }

void zset_cs_dir(char const* dir) {
    if (dir == nullptr) return;
    // Noted first, or an initialisation that runs meanwhile could put its own directory over this
    // one.
    directoryChosen = true;
    qcs_set_dir(dir);
}

int zlcs_to_utf8(char const* in, unsigned int inLen, char* out, unsigned int outLen) {
    if (in == nullptr || inLen == 0 || out == nullptr || outLen == 0) return 0;
    return qcs_to_utf8(zgetLCSHandle(), in, inLen, out, outLen);
}

int zlcs_from_utf8(char const* in, unsigned int inLen, char* out, unsigned int outLen) {
    if (in == nullptr || inLen == 0 || out == nullptr || outLen == 0) return 0;
    return qcs_from_utf8(zgetLCSHandle(), in, inLen, out, outLen);
}

int zlcs_mb_max() {
    zgetLCSHandle();
    return localGreatest.load(std::memory_order_acquire);
}

int zmblen(ZCodesetHandle cs, char const* p, unsigned int n) {
    if (p == nullptr || n == 0 || *p == 0) return 0;
    bool const isLocal = cs != 0 && cs == zlocal_codeset_.load(std::memory_order_acquire);
    // Spares single-byte locales the way through the codeset layer.
    if (isLocal && localGreatest.load(std::memory_order_acquire) == 1) return 1;
    return qcs_mblen(cs, p, n);
}

int zstrcount(ZCodesetHandle cs, char const* s) { return static_cast<int>(qcs_strcount(cs, s)); }

int zmbtowc(ZCodesetHandle cs, ZWideChar* wide, char const* p, unsigned int n) {
    return qcs_mbtowc(cs, wide, p, n);
}

int zisspace(ZCodesetHandle cs, char const* p, unsigned int n) {
    return lengthIf(qcs_iswspace, cs, p, n);
}

int zisalpha(ZCodesetHandle cs, char const* p, unsigned int n) {
    return lengthIf(qcs_iswalpha, cs, p, n);
}

int ziswupper(ZWideChar wide) { return qcs_iswupper(wide); }
int ziswlower(ZWideChar wide) { return qcs_iswlower(wide); }
int ziswspace(ZWideChar wide) { return qcs_iswspace(wide); }
int ziswdigit(ZWideChar wide) { return qcs_iswdigit(wide); }
int ziswalpha(ZWideChar wide) { return qcs_iswalpha(wide); }
int ziswalnum(ZWideChar wide) { return qcs_iswalnum(wide); }

char* zstrchr(ZCodesetHandle cs, char const* s, int c) { return qcs_strchr(cs, s, c); }
char* zstrrchr(ZCodesetHandle cs, char const* s, int c) { return qcs_strrchr(cs, s, c); }

char* zstrstr(ZCodesetHandle cs, char const* s, char const* sub) { return qcs_strstr(cs, s, sub); }

char* zstrpbrk(ZCodesetHandle cs, char const* s, char const* set) {
    return qcs_strpbrk(cs, s, set);
}

unsigned int zstrspn(ZCodesetHandle cs, char const* s, char const* set) {
    return qcs_strspn(cs, s, set);
}

unsigned int zstrcspn(ZCodesetHandle cs, char const* s, char const* set) {
    return qcs_strcspn(cs, s, set);
}

char* zstrtok(ZCodesetHandle cs, char* s, char const* delims, char** state) {
    return qcs_strtok(cs, s, delims, state);
}

char* zstrncat(ZCodesetHandle cs, char* dst, char const* src, unsigned int n) {
    return qcs_strncat(cs, dst, src, n);
}

char* zstrncpy(ZCodesetHandle cs, char* dst, char const* src, unsigned int n) {
    return qcs_strncpy(cs, dst, src, n);
}

int zstricmp(ZCodesetHandle cs, char const* a, char const* b) {
    return qcs_stricmp(cs, localLocale(), a, b);
}

int zstrnicmp(ZCodesetHandle cs, char const* a, char const* b, unsigned int n) {
    return qcs_strnicmp(cs, localLocale(), a, b, n);
}

char* zstrupper(ZCodesetHandle cs, char* s) { return qcs_strupper(cs, localLocale(), s); }
char* zstrlower(ZCodesetHandle cs, char* s) { return qcs_strlower(cs, localLocale(), s); }

char* zstrptime(ZCodesetHandle cs, char const* s, char const* format, struct tm* tm) {
    return qcs_strptime(cs, localLocale(), s, format, tm);
}
