#include <cstring>

#include "Z/ZGetLocale.h"
#include "Z/zasprintf.h"
#include "Z/zfileinherit.h"
#include "Z/zproperties_c.h"
#include "Z/zsetup.h"
#include "Z/zshlib.h"
#include "Z/zsnprintf.h"
#include "Z/zutfconvert.h"
#include "Z/zutils.h"
#include "Z/zversion.h"

namespace {

using Function = void (*)();

struct Row {
    char const* name;
    Function function;
};

template <class Typed>
Row named(char const* name, Typed* function) {
    return {name, reinterpret_cast<Function>(function)};
}

// The name as it stands here, without the tag that the function has.
#define ROW(function) named(#function, &(function))

/// Every exported C function; scripts/checks/exported.py misses those that are not here.
Row const rows[] = {
    ROW(zasprintf),
    ROW(zasprintf_free),
    ROW(zconvert_UTF16_to_UTF8),
    ROW(zdlclose),
    ROW(zdlerror),
    ROW(zdlopen),
    ROW(zdlsym),
    ROW(zfc_setup),
    ROW(zfcFunction),
    ROW(zfcVersion),
    ROW(zgetLCSHandle),
    ROW(zgetLocalCodesetName),
    ROW(zgetlocale),
    ROW(zgetUTF8Handle),
    ROW(zhex_dump),
    ROW(zinet_ntop),
    ROW(zinet_pton),
    ROW(zisalpha),
    ROW(zisspace),
    ROW(ziswalnum),
    ROW(ziswalpha),
    ROW(ziswdigit),
    ROW(ziswlower),
    ROW(ziswspace),
    ROW(ziswupper),
    ROW(zlcs_from_utf8),
    ROW(zlcs_mb_max),
    ROW(zlcs_to_utf8),
    ROW(zmblen),
    ROW(zmbtowc),
    ROW(zset_cs_dir),
    ROW(zsetfileinheritance),
    ROW(zsnprintf),
    ROW(zsprintf),
    ROW(zstrchr),
    ROW(zstrcount),
    ROW(zstrcspn),
    ROW(zstricmp),
    ROW(zstrlower),
    ROW(zstrncat),
    ROW(zstrncpy),
    ROW(zstrnicmp),
    ROW(zstrpbrk),
    ROW(zstrptime),
    ROW(zstrrchr),
    ROW(zstrspn),
    ROW(zstrstr),
    ROW(zstrtok),
    ROW(zstrupper),
    ROW(zstzPropAddFileComment),
    ROW(zstzPropAddLineComment),
    ROW(zstzPropAddStanzaComment),
    ROW(zstzPropClose),
    ROW(zstzPropCreate),
    ROW(zstzPropExists),
    ROW(zstzPropFree),
    ROW(zstzPropFreeNames),
    ROW(zstzPropFreeValuesList),
    ROW(zstzPropGetBooleanValue),
    ROW(zstzPropGetDoubleValue),
    ROW(zstzPropGetInteger64Value),
    ROW(zstzPropGetIntegerValue),
    ROW(zstzPropGetKeyNames),
    ROW(zstzPropGetStanzaNames),
    ROW(zstzPropGetStringValue),
    ROW(zstzPropGetValues),
    ROW(zstzPropIter_addValue),
    ROW(zstzPropIter_chgValue),
    ROW(zstzPropIter_close),
    ROW(zstzPropIter_getKey),
    ROW(zstzPropIter_getValue),
    ROW(zstzPropIter_init),
    ROW(zstzPropIter_next),
    ROW(zstzPropIter_numKeys),
    ROW(zstzPropIter_numValues),
    ROW(zstzPropIter_rmvValue),
    ROW(zstzPropLastError),
    ROW(zstzPropNumKeys),
    ROW(zstzPropNumStanzas),
    ROW(zstzPropNumValues),
    ROW(zstzPropOpen),
    ROW(zstzPropRemoveKey),
    ROW(zstzPropRemoveStanza),
    ROW(zstzPropSetBooleanValue),
    ROW(zstzPropSetDoubleValue),
    ROW(zstzPropSetInteger64Value),
    ROW(zstzPropSetIntegerValue),
    ROW(zstzPropSetStringValue),
    ROW(zstzPropStore),
    ROW(zstzPropUpdate),
    ROW(zvasprintf),
    ROW(zvsnprintf),
    ROW(zvsnprintf_done),
    ROW(zvsnprintf_parse),
    ROW(zvsnprintf_render),
    ROW(zvsprintf),
};

}  // namespace

void (*zfcFunction(char const* name))(void) {
    if (name == nullptr) return nullptr;
    for (Row const& row : rows)
        if (std::strcmp(row.name, name) == 0) return row.function;
    return nullptr;
}
