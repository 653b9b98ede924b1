/// What many edits at once have changed, as observers are told of it.
#ifndef Z_CONFIG_CHANGES_H
#define Z_CONFIG_CHANGES_H

#include "Z/ZProperties.h"
#include "Z/ZPropertiesImpl.h"
#include "Z/config/cache/texts.h"

namespace zfc::config {

/// Notices that are sent later, in their order.
class Notices {
  public:
    /// A null `key` for a change of the whole stanza.
    void add(ZPropertyChanged::PropertyChangeType type, char const* stanza, char const* key) {
        notices.emplace_back(ZPropertyChanged::stanzaAndKey, type, stanza, key);
    }
    /// Adds what makes `after` of `before`; the order is said at ZProperties::reload(). Comments
    /// and the order of the lines do not count. Without memory nothing is added.
    void addDifferences(ZPCategoryBasedCache const& before, ZPCategoryBasedCache const& after);

    [[nodiscard]] std::size_t size() const { return notices.size(); }
    /// Drops those behind the first `count`.
    void cut(std::size_t count) {
        while (notices.size() > count)
            notices.pop_back();
    }
    void swap(Notices& other) noexcept { notices.swap(other.notices); }

    [[nodiscard]] auto begin() const { return notices.begin(); }
    [[nodiscard]] auto end() const { return notices.end(); }

  private:
    zfc::cache::Vector<ZPropertyChanged> notices;
};

}  // namespace zfc::config

#endif
