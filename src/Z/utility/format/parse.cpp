#include "Z/utility/format/spec_reader.h"

#include <climits>
#include <cstdlib>

#include "Z/utility/format/records.h"

namespace zfc::format {
namespace {

/// Six times this, the highest argument number there can be, is still an int.
constexpr int maxSpecs = INT_MAX / 6;

/// The table is full at ten records, at twenty, at forty and so on.
bool isFull(int count) {
    // Layout: the context has no field for the room, so the count alone tells when it is used up.
    int const tens = count / ZFORMAT_INLINE_SPECS;
    return tens > 0 && count % ZFORMAT_INLINE_SPECS == 0 && (tens & (tens - 1)) == 0;
}

bool growSpecs(ZFormatContext& ctx) {
    std::size_t bytes = 0;
    auto const count = static_cast<std::size_t>(ctx.specCount);
    // Twice the count itself fits, see maxSpecs.
    if (__builtin_mul_overflow(count * 2, sizeof(ZFormatSpec), &bytes)) return false;
    // The first table is part of the context, and not realloc()'s to move.
    bool const isInline = ctx.specs == ctx.inlineSpecs;
    void* const block = std::realloc(isInline ? nullptr : ctx.specs, bytes);
    if (block == nullptr) return false;
    if (isInline) std::memcpy(block, ctx.inlineSpecs, count * sizeof(ZFormatSpec));
    ctx.specs = static_cast<ZFormatSpec*>(block);
    return true;
}

/// An uninitialised record behind the last one; null when there can be no more.
ZFormatSpec* addSpec(ZFormatContext& ctx) {
    if (ctx.specCount == maxSpecs) return nullptr;
    if (isFull(ctx.specCount) && !growSpecs(ctx)) return nullptr;
    return &ctx.specs[ctx.specCount++];
}

}  // namespace

bool readSpecs(ZFormatContext& ctx) {
    for (char const* at = ctx.format; *(at = nextSpec(at)) != '\0';) {
        ZFormatSpec* const spec = addSpec(ctx);
        if (spec == nullptr || !SpecReader(*spec, at).read()) return false;
        at = spec->end;
    }
    return true;
}

}  // namespace zfc::format
