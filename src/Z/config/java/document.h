/// Shared. A properties file in memory, as its lines.
#ifndef Z_CONFIG_JAVA_DOCUMENT_H
#define Z_CONFIG_JAVA_DOCUMENT_H

#include <list>
#include <map>

#include "Z/config/java/text.h"

namespace zfc::java {

/// Texts go in and out in UTF-8 and are not malformed. Whatever fails changes nothing.
class Document {
  public:
    struct Entry {
        Kind kind;
        String bytes;  // as they stand in the file
        String key;    // of a pair, in UTF-8
    };
    using Entries = std::list<Entry, zfc::cache::Allocator<Entry>>;
    using Place = Entries::const_iterator;

    explicit Document(Encoding ofFile) : encoding(ofFile) {}
    Document(Document&&) = default;
    Document& operator=(Document&&) = default;
    Document(Document const&) = delete;
    Document& operator=(Document const&) = delete;

    /// Appends a line of the file.
    void add(Lines const& lines);
    /// What new lines end with.
    void setLineEnd(std::string_view bytes) { lineEnd = bytes; }
    [[nodiscard]] String image() const;

    [[nodiscard]] bool contains(std::string_view key) const { return index.count(key) != 0; }
    /// The line of a key that counts, its last one; the end when there is none.
    [[nodiscard]] Place find(std::string_view key) const;
    [[nodiscard]] Place begin() const { return entries.begin(); }
    [[nodiscard]] Place end() const { return entries.end(); }
    [[nodiscard]] bool counts(Place pair) const { return find(pair->key) == pair; }
    [[nodiscard]] Plain valueAt(Place pair) const;
    /// The bytes of all lines above.
    [[nodiscard]] String bytesAbove(Place place) const;

    void set(std::string_view key, std::string_view value);
    /// All lines of the key; false when there is none.
    bool remove(std::string_view key);
    /// Below the comments that the file begins with.
    void addComment(std::string_view text);
    void addCommentAbove(Place place, std::string_view text);
    /// Gives every pair that is text the form of a new line.
    void rewrite();
    void dropComments();

  private:
    using Places = Vector<Entries::iterator>;
    using Index = std::map<std::string_view, Places, std::less<>,
                           zfc::cache::Allocator<std::pair<std::string_view const, Places>>>;

    [[nodiscard]] String normalForm(Entry const& entry) const;
    void insert(Place place, Entries& one);
    void append(std::string_view key, std::string_view value);

    Encoding encoding;
    String lineEnd = "\n";
    Entries entries;  // in the order of the file
    Index index;      // the lines of each key in that order; the names are those of the first one
};

}  // namespace zfc::java

#endif
