/// The name of this machine.
#ifndef Z_ZLOCALHOSTNAME_H
#define Z_ZLOCALHOSTNAME_H

#include "Z/ztags.h"

#include "Z/ZLCString.h"
#include "Z/ZObject.h"
#include "Z/zexport.h"

/// Asks the system for the name under which others find this machine.
class ZFC_API ZLocalHostName : public ZObject {
  public:
    ~ZLocalHostName() override;

    /// The official name of this machine as the resolver gives it, such as "web1.example.com",
    /// which may differ from what gethostname() gives. Empty when there is none: then message 25
    /// (gethostname() failed) or 26 (the name does not resolve) went to the message service with
    /// the `errno` as its text. Waits as long as the resolver does; any thread may call it.
    /// Throws ZOutOfMemoryException (message 1).
    [[nodiscard]] static ZLCString getLocalHostName();
};

#endif
