#include "qcs/qcs_codeset.h"

#include <unordered_map>

#include "qcs/qcs_cancellation.h"
#include "qcs/qcs_compile.h"
#include "qcs/qcs_fork.h"
#include "qcs/qcs_names.h"

namespace qcs {
namespace {

/// All codesets of the process, by handle - 1. A slot is filled once and kept, so it is read
/// without a lock and a stale handle never meets freed memory.
std::array<std::atomic<Codeset*>, 512> slots{};

/// Makes codesets, and knows what names they were asked by. Made and used under the layer's lock.
class Registry {
  public:
    qcs_cs_handle acquire(char const* name) {
        qcs_cs_handle const cs = handleOf(name);
        // Relaxed: slots are filled under the lock.
        if (cs != 0) slots[cs - 1].load(std::memory_order_relaxed)->references.fetch_add(1);
        return cs;
    }

    void release(qcs_cs_handle cs) {
        if (cs == 0 || cs > used) return;
        auto& references = slots[cs - 1].load(std::memory_order_relaxed)->references;
        // Freed once too often it stays none; wrapped, it could not be freed any more.
        if (references.load() > 0) references.fetch_sub(1);
    }

  private:
    qcs_cs_handle handleOf(std::string const& name) {
        std::string const canonical = canonicalCodeset(name);
        auto const known = handles.find(canonical);
        if (known != handles.end()) return known->second;
        qcs_cs_handle cs = make(canonical);
        // iconv may know it by the name that was asked for alone.
        if (cs == 0 && canonical != name) cs = make(name);
        if (cs != 0) handles.emplace(canonical, cs);
        return cs;
    }

    qcs_cs_handle make(std::string const& name) {
        if (name == "UTF-8") return add(name, nullptr);
        auto table = compileCodeset(name);
        if (table == nullptr) return 0;
        // Two names of one codeset give one handle: strings take different handles for foreign
        // text.
        for (qcs_cs_handle cs = 1; cs <= used; ++cs) {
            Codeset const* const other = slots[cs - 1].load(std::memory_order_relaxed);
            if (other->table != nullptr && other->table->decodesAs(*table)) return cs;
        }
        return add(name, std::move(table));
    }

    qcs_cs_handle add(std::string const& name, std::unique_ptr<TableCodec> table) {
        if (used == slots.size()) return 0;
        auto codeset = std::make_unique<Codeset>();
        codeset->iconvName = name;
        codeset->table = std::move(table);
        // Complete before findCodeset(), which takes no lock, can see it.
        slots[used++].store(codeset.release(), std::memory_order_release);
        return used;
    }

    std::unordered_map<std::string, qcs_cs_handle> handles;  // by canonical name
    qcs_cs_handle used = 0;
};

Registry& registry() {
    static auto& instance = *new Registry;  // never destroyed: text is handled to the very end
    return instance;
}

}  // namespace

Codeset const* findCodeset(qcs_cs_handle cs) {
    if (cs == 0 || cs > slots.size()) return nullptr;
    Codeset const* const codeset = slots[cs - 1].load(std::memory_order_acquire);
    bool const isHeld =
        // Relaxed: the count vouches for no other memory, the tables stay anyway.
        codeset != nullptr && codeset->references.load(std::memory_order_relaxed) > 0;
    return isHeld ? codeset : nullptr;
}

}  // namespace qcs

qcs_cs_handle qcs_cs_new(char const* name) {
    if (name == nullptr || !qcs::isName(name)) return 0;
    qcs::CancellationOff const wholeCodesets;
    try {
        qcs::Guard const guard;
        return qcs::registry().acquire(name);
    } catch (...) {  // out of memory: there is no codeset to be had
        return 0;
    }
}

void qcs_cs_free(qcs_cs_handle cs) {
    if (qcs::findCodeset(cs) == nullptr) return;
    qcs::Guard const guard;
    qcs::registry().release(cs);
}

int qcs_mb_max(qcs_cs_handle cs) {
    return qcs::withCodec(cs, 1,
                          [](auto const& codec) { return static_cast<int>(codec.maxLength()); });
}
