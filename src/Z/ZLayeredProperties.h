/// Settings that come from several places, of which later ones win.
#ifndef Z_ZLAYEREDPROPERTIES_H
#define Z_ZLAYEREDPROPERTIES_H

#include "Z/ztags.h"

#include <memory>

#include "Z/ZLCString.h"
#include "Z/ZProperties.h"
#include "Z/zexport.h"

/// The settings of a system file, of a directory of files, of a user's file and of the environment,
/// read as one: a key has the values of the last place that names it, and of that one alone. A key
/// without values hides those before it.
///
///     ZLayeredProperties settings;
///     settings.addFile("/etc/app.conf");
///     settings.addDirectory("/etc/app.conf.d");
///     settings.addFile(userFile, ZLayeredProperties::Presence::optional);
///     settings.addEnvironment("APP_");  // APP_SERVER__PORT=8080
///     settings.load();
///
/// Once its places are there it is used by any number of threads at a time: a read answers from one
/// load, whole. Nothing is written through it: an edit is one of the file it belongs to, which
/// getOrigin() tells. The reads are those of ZPropertiesInterface, and raise what these do.
class ZFC_API ZLayeredProperties : public ZObject, public ZPropertiesInterface {
  public:
    /// Whether load() fails without the file.
    enum class Presence { required, optional };

    ZLayeredProperties();
    ZLayeredProperties(ZLayeredProperties const&) = delete;
    ZLayeredProperties& operator=(ZLayeredProperties const&) = delete;
    ~ZLayeredProperties() override;

    // The places, from the weakest on; load() reads them. A null or empty text raises
    // ZInvalidParameterException (message 22).

    /// A stanza file.
    void addFile(char const* path, Presence presence = Presence::required);
    /// The stanza files of a directory whose names end in ".conf" and do not begin with a dot, in
    /// the byte order of their names. No directory is one without files.
    void addDirectory(char const* path);
    /// The variables of the environment whose names are the prefix, a stanza, two underscores and a
    /// key; an empty one counts as absent. Letters may be of either case, and an underscore stands
    /// for any byte that is no letter or digit (ASCII): of the keys in front of it all that look so
    /// are meant, and where there is none a new one in lower case. The environment is read by
    /// load(): nobody may change it meanwhile.
    void addEnvironment(char const* prefix);

    /// Reads all places. When one fails, what was read before stays; raises what
    /// ZProperties::load() does, and ZPropertiesIOException (message 43) with "opendir()" for a
    /// directory that cannot be read.
    void load();

    /// The path of the file, or the name of the variable, that the key comes from; empty when it is
    /// absent.
    [[nodiscard]] ZLCString getOrigin(char const* stanza, char const* key) const;

    // in slot order: do not sort
    [[nodiscard]] bool exists(char const* stanza, char const* key) const override;
    [[nodiscard]] bool exists(char const* stanza) const override;
    [[nodiscard]] bool isObfuscated(char const* stanza, char const* key) const override;
    [[nodiscard]] bool isObfuscated(char const* stanza) const override;
    void getValue(char const* stanza, char const* key, ZAbstractMutableString& out,
                  int required = 0, char const* defaultValue = nullptr) const override;
    [[nodiscard]] unsigned int getIntegerValue(char const* stanza, char const* key,
                                               int required = 0,
                                               unsigned int defaultValue = 0) const override;
    [[nodiscard]] int getBooleanValue(char const* stanza, char const* key, int required = 0,
                                      int defaultValue = 0) const override;
    void getValues(char const* stanza, char const* key, ZArrayList& values,
                   ZPropertyStringType type) const override;
    [[nodiscard]] unsigned int numValues(char const* stanza) const override;
    [[nodiscard]] unsigned int numValues(char const* stanza, char const* key) const override;
    [[nodiscard]] unsigned int count() const override;
    [[nodiscard]] unsigned int count(char const* stanza) const override;
    void list() const override;

  private:
    class Merged;
    struct Places;

    [[nodiscard]] std::shared_ptr<Merged const> merged() const;

    std::unique_ptr<Places> places;  // never null
};

#endif
