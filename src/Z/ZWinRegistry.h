/// The registry of Windows, which exists on that platform only: here, every operation fails.
#ifndef Z_ZWINREGISTRY_H
#define Z_ZWINREGISTRY_H

#include "Z/ztags.h"

#include "Z/ZLCString.h"
#include "Z/ZObject.h"
#include "Z/zexport.h"

/// There for programs that are built for several platforms.
class ZFC_API ZWinRegistry : public ZObject {
  public:
    ~ZWinRegistry() override;

    /// Whether the registry has the key. Throws ZInvalidPlatformException (message 11).
    [[nodiscard]] static bool exists(char const* key);
    /// The text of a value of a key. Throws ZInvalidPlatformException (message 11).
    [[nodiscard]] static ZLCString getValue(char const* key, char const* name);
};

#endif
