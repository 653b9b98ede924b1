/// Splitting a string into tokens.
#ifndef Z_ZSTRINGTOKENIZER_H
#define Z_ZSTRINGTOKENIZER_H

#include "Z/ztags.h"

#include <memory>

#include "Z/ZAbstractMutableString.h"
#include "Z/ZIterator.h"
#include "Z/zexport.h"

class ZArrayList;

/// Gives the runs of characters between delimiters one by one in a string that the caller supplies.
/// A delimiter is a whole character, never part of another one. Source and target outlive the
/// tokenizer; the source stays unchanged while it is walked.
///
/// A malformed character where a delimiter is looked for raises ZQCSMBLenException (message 46);
/// the tokenizer stays where it was. In a codeset of single bytes no character is malformed.
class ZFC_API ZStringTokenizer : public ZAbstractIterator {
  public:
    /// Splits at blanks, tabs, carriage returns and line feeds, and at no other white space. A
    /// target of another codeset than the source's raises ZUnsupportedException (message 48).
    ZStringTokenizer(ZAbstractString const& source, ZAbstractMutableString& target);
    /// Splits at the characters of `delimiters`, which is copied, and converted when it is of the
    /// other family; what cannot be raises ZToUTF8Exception (message 49) or ZFromUTF8Exception
    /// (50). ZUnsupportedException (48) as above.
    ZStringTokenizer(ZAbstractString const& source, ZAbstractMutableString& target,
                     ZAbstractString const& delimiters);
    // A temporary would be gone before the first token.
    ZStringTokenizer(ZAbstractString const&& source, ZAbstractMutableString& target) = delete;
    ZStringTokenizer(ZAbstractString const&& source, ZAbstractMutableString& target,
                     ZAbstractString const& delimiters) = delete;
    /// Stands where the other one stands and shares its source and target.
    ZStringTokenizer(ZStringTokenizer const& other);
    ZStringTokenizer& operator=(ZStringTokenizer const&) = delete;

    // in slot order: do not sort
    ~ZStringTokenizer() override;
    [[nodiscard]] ZStringTokenizer* clone() const override;
    /// Moves over delimiters and says whether a token is left. `delims` of the other family are
    /// converted; what cannot be raises ZToUTF8Exception (message 49) or ZFromUTF8Exception (50).
    [[nodiscard]] virtual bool hasMore(ZAbstractString const& delims);
    [[nodiscard]] bool hasMore() override;
    /// The target, holding the next token; at the end, holding empty text. It stays the caller's
    /// and changes with the next call. `delims` as for hasMore().
    virtual ZAbstractMutableString* getNext(ZAbstractString const& delims);
    ZAbstractMutableString* getNext() override;
    /// Back to the beginning.
    void reset() override;
    /// Appends a copy of every token that is left to `out`. They belong to `out` when it owns its
    /// members, otherwise to the caller. A failure leaves in `out` the tokens found so far.
    virtual void list(ZArrayList& out);

  private:
    [[nodiscard]] unsigned int skipAll(ZAbstractString const& delims) const;
    [[nodiscard]] unsigned int skipOther(ZAbstractString const& delims, char const* end) const;
    void setTarget(unsigned int size, char const* end);
    [[nodiscard]] unsigned int checkedStop(unsigned int passed) const;

    char const* position;                                // where the next search starts
    ZAbstractString const* source;                       // the string split; not owned
    ZAbstractMutableString& target;                      // receives each token; not owned
    std::unique_ptr<ZAbstractMutableString> delimiters;  // default set, of the source's family
    int mbMax;  // greatest length of a character where the source is in the local codeset; else 0
};

#endif
