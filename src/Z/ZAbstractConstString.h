/// A view of text that somebody else keeps.
#ifndef Z_ZABSTRACTCONSTSTRING_H
#define Z_ZABSTRACTCONSTSTRING_H

#include "Z/ztags.h"

#include <climits>
#include <cstddef>
#include <cstring>

#include "Z/ZAbstractString.h"
#include "Z/zexport.h"

/// Shows a NUL-terminated text without owning it: making, copying and assigning one moves a pointer
/// and never bytes. The caller keeps the text alive and unchanged as long as the view is used.
class ZFC_API ZAbstractConstString : public ZAbstractString {
  public:
    // in slot order: do not sort
    ~ZAbstractConstString() override;
    [[nodiscard]] ZFC_API char const* getChars() const override { return chars; }
    /// Shows the text of `other` from now on when it is of the same family. With any other string
    /// this does nothing at all, in every locale: a view never converts, and never checks.
    void setChars(ZAbstractString const& other) override;
    /// Measured once, when first asked for. A text that 32 bits cannot measure raises
    /// ZOutOfMemoryException (message 1).
    [[nodiscard]] ZFC_API unsigned int getLength() const override {
        // 0 means not measured too: an empty text is looked at each time, which costs a byte.
        if (cachedLength == 0 && *chars != '\0') cachedLength = checkedLength(std::strlen(chars));
        return cachedLength;
    }

    /// Shows `text` from now on; null shows the empty text.
    ZAbstractConstString& operator=(char const* text) {
        chars = text != nullptr ? text : zemptyString;
        cachedLength = 0;
        return *this;
    }
    using ZAbstractString::operator=;
    ZAbstractConstString& operator=(ZAbstractConstString const& other) {
        ZAbstractString::operator=(other);
        return *this;
    }

  protected:
    ZAbstractConstString() = default;
    /// Null shows the empty text.
    explicit ZAbstractConstString(char const* text)
        : chars(text != nullptr ? text : zemptyString) {}
    ZAbstractConstString(ZAbstractConstString const& other) = default;

    /// The empty text that stands in for null.
    static char const* const zemptyString;

  private:
    [[nodiscard]] static unsigned int checkedLength(std::size_t bytes) {
        // Not even the length of UINT_MAX: whoever copies the text has to count its NUL.
        if (bytes >= UINT_MAX) raiseTooLong();
        return static_cast<unsigned int>(bytes);
    }
    [[noreturn]] static void raiseTooLong();

    char const* chars = zemptyString;       // the text shown; never null, not owned
    mutable unsigned int cachedLength = 0;  // its length; 0: not measured yet, or empty
};

#endif
