/// Conversion between UTF-8 and a codeset of the caller's choice.
#ifndef Z_ZQCSUTF8CONVERTER_H
#define Z_ZQCSUTF8CONVERTER_H

#include "Z/ztags.h"

#include "Z/ZBuffer.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/zexport.h"
#include "Z/zqcsutil.h"

/// What a converter offers. Nothing locks.
class ZFC_API ZUTF8ConverterInterface {
  public:
    // in slot order: do not sort
    /// The name of the codeset that is not UTF-8; it lives as long as the converter.
    [[nodiscard]] virtual ZLCConstString const& getLocalCodeSet() const = 0;
    /// Converts `utf8` with its terminating NUL, which is the last byte of `out` then.
    virtual void convertToLocal(char const* utf8, ZBuffer& out) = 0;
    /// Converts `local` with its terminating NUL, which is the last byte of `out` then.
    virtual void convertToUTF8(char const* local, ZBuffer& out) = 0;
    virtual ~ZUTF8ConverterInterface();

  protected:
    ZUTF8ConverterInterface() = default;
    ZUTF8ConverterInterface(ZUTF8ConverterInterface const&) = default;
    ZUTF8ConverterInterface& operator=(ZUTF8ConverterInterface const&) = default;
};

/// A converter that is an object.
class ZFC_API ZAbstractUTF8Converter : public ZUTF8ConverterInterface, public virtual ZObject {
  public:
    ~ZAbstractUTF8Converter() override;

  protected:
    ZAbstractUTF8Converter() = default;
    ZAbstractUTF8Converter(ZAbstractUTF8Converter const&) = default;
    ZAbstractUTF8Converter& operator=(ZAbstractUTF8Converter const&) = default;
};

/// Converts through the codeset layer, independently of the process's local codeset.
///
/// A conversion that fails, because the text is malformed, has a character that the target lacks,
/// or the converter has no codeset, throws nothing: it leaves `out` at the length reserved for the
/// result (three times the bytes and one towards UTF-8, twice and one from it), with zeros; the
/// checked forms tell it from empty text. The text must not lie in `out`; null is empty text. A
/// result that 32 bits cannot measure raises ZOutOfMemoryException (message 1).
class ZFC_API ZQCSUTF8Converter : public ZAbstractUTF8Converter {
  public:
    /// A converter without codeset: its name is empty, every conversion fails. Throws
    /// ZNoQCSEnvironmentException (message 45) when `QCSDIR` is unset.
    ZQCSUTF8Converter();
    /// A converter for the codeset of that name; null means the one that the environment names.
    /// `dir`, when it is not null, becomes the process's codeset data directory; otherwise an unset
    /// `QCSDIR` raises ZNoQCSEnvironmentException (message 45). An unknown name raises
    /// ZCodesetException (message 47); an empty one makes a converter without codeset.
    ZQCSUTF8Converter(char const* codeset, char const* dir);
    ZQCSUTF8Converter(ZQCSUTF8Converter const&) = delete;
    ZQCSUTF8Converter& operator=(ZQCSUTF8Converter const&) = delete;

    // in slot order: do not sort
    [[nodiscard]] ZLCConstString const& getLocalCodeSet() const override;
    void convertToLocal(char const* utf8, ZBuffer& out) override;
    void convertToUTF8(char const* local, ZBuffer& out) override;
    ~ZQCSUTF8Converter() override;

    /// The checked forms: convert `length` bytes, which need no NUL behind them and may have some
    /// among them. True: `out` has the result and one NUL behind it. False: `out` is empty, and
    /// `*place`, unless `place` is null, the offset of the first character that does not convert.
    [[nodiscard]] bool tryConvertToLocal(char const* utf8, unsigned long length, ZBuffer& out,
                                         unsigned long* place = nullptr) const;
    /// The same in the other direction.
    [[nodiscard]] bool tryConvertToUTF8(char const* local, unsigned long length, ZBuffer& out,
                                        unsigned long* place = nullptr) const;

  private:
    ZLCString localCodeSetName;        // name of the codeset; empty: none
    ZLCConstString localCodeSetView;   // what getLocalCodeSet() hands out
    ZCodesetHandle codesetHandle = 0;  // of that name, freed with the converter; 0: none
};

#endif
