/// The stanza file format: the cache of a stanza file with its reader and its writer.
///
/// SCF is short for stanza configuration file.
#ifndef Z_ZSCFDATA_H
#define Z_ZSCFDATA_H

#include "Z/ztags.h"

#include "Z/ZPropertiesImpl.h"
#include "Z/zexport.h"

/// A stanza file: stanzas headed by `[name]`, each with `key = value` lines, `#` comments and blank
/// lines; and its companion file, which holds the obfuscated values, compressed.
class ZFC_API ZSCFData : public ZPCategoryBasedCache {
  public:
    ZSCFData() = default;
    ZSCFData& operator=(ZSCFData const&) = delete;

    // in slot order: do not sort
    ~ZSCFData() override;
    [[nodiscard]] ZObject* clone() const override;
    /// Reads the whole stream, in one pass, to what is already there. Waits as the stream does.
    /// What does not follow the format raises ZPropertiesInvalidDataException (message 44) with
    /// `fileName`, the line without its trailing white space, and its number: a key line before the
    /// first header, without `=` or with nothing before it; a header without `]` or of a stanza
    /// already there; a NUL byte. The lines before it stay read. A read error raises
    /// ZPropertiesIOException (message 43) with "fread()" and nothing is added.
    void be_read(char const* fileName, FILE* stream) override;
    /// Writes all lines, in order: "[%s]", "%s = %s" for every plain value of a key at the place of
    /// its line, "%s =" for a key without values, comments and blank lines; no line for a key that
    /// has obfuscated values only. Waits as the stream does. A line that no reader would get back
    /// whole, as a long one read without blanks around its `=`, raises
    /// ZPropertiesInvalidDataException (message 44) with that line and its number before anything
    /// is written; a write error raises ZPropertiesIOException (message 43) with "fwrite()".
    void be_write(char const* fileName, FILE* stream) override;
    /// Expands the companion file's bytes and adds its values as obfuscated ones. Bytes that are
    /// damaged, cut off, expand beyond getCompanionLimit() or hold anything but whole records with
    /// names raise ZPropertiesInvalidDataException (message 44) with the companion's name, no data
    /// and line 0, and nothing is added.
    void be_read_obfuscated(ZBuffer& in) override;
    /// Compresses all obfuscated values into `out`; without any, `out` stays untouched.
    void be_write_obfuscated(ZBuffer& out) override;

  private:
    ZSCFData(ZSCFData const& other) = default;  // for clone()
};

#endif
