#include "Z/zsnprintf.h"

#include <climits>
#include <cstdlib>
#include <memory>

#include "Z/utility/format/plain.h"
#include "Z/utility/format/records.h"

namespace {

void prepare(ZFormatContext& ctx, ZCodesetHandle codeset, char const* format) {
    ctx.specs = ctx.inlineSpecs;
    ctx.specCount = 0;
    ctx.args = ctx.inlineArgs;
    ctx.reserved = 0;
    ctx.format = format;
    ctx.codeset = codeset;
    ctx.reservedLast = 0;
}

void done(ZFormatContext& ctx) {
    if (ctx.specs != ctx.inlineSpecs) std::free(ctx.specs);
    if (ctx.args != ctx.inlineArgs) std::free(ctx.args);
    // Back to what a fresh one has: done twice, nothing is freed twice.
    ctx.specs = ctx.inlineSpecs;
    ctx.specCount = 0;  // the inline table does not hold them
    ctx.args = ctx.inlineArgs;
}

bool parse(ZFormatContext& ctx, ZCodesetHandle codeset, char const* format, va_list list) {
    prepare(ctx, codeset, format);
    int const count = zfc::format::readSpecs(ctx) ? zfc::format::numberArguments(ctx) : -1;
    if (count < 0) {
        done(ctx);
        return false;
    }
    zfc::format::fetchArguments(ctx, count, list);
    return true;
}

/// A format parsed for one call.
class ParsedFormat {
  public:
    ParsedFormat(char const* format, va_list list) {
        if (format == nullptr) return;
        ctx.format = format;
        ctx.codeset = zgetLCSHandle();
        isPlain = zfc::format::readPlain(ctx, tables, list);
        isValid = isPlain || parse(ctx, ctx.codeset, format, list);
    }
    ~ParsedFormat() {
        if (isValid && !isPlain) done(ctx);
    }
    ParsedFormat(ParsedFormat const&) = delete;
    ParsedFormat& operator=(ParsedFormat const&) = delete;

    /// Null when the format was bad.
    [[nodiscard]] ZFormatContext const* context() const { return isValid ? &ctx : nullptr; }

  private:
    // Reading fills what is used of these two.
    ZFormatContext ctx;
    zfc::format::PlainTables tables;
    bool isPlain = false;
    bool isValid = false;
};

int renderInto(ZFormatContext const& ctx, char* out, std::size_t size) {
    zfc::format::Sink sink(out, size);
    bool const isRendered = zfc::format::render(ctx, sink);
    // After a failure too: the caller's buffer holds a text in any case.
    sink.terminate();
    return isRendered && sink.counted() <= INT_MAX ? static_cast<int>(sink.counted()) : -1;
}

/// Renders `ctx` into a new block; -1 and null when that fails.
int renderAllocated(ZFormatContext const& ctx, char** result) {
    char shortText[512];  // most results: measured and written at once
    int const length = renderInto(ctx, shortText, sizeof(shortText));
    if (length < 0) return -1;
    auto const size = static_cast<std::size_t>(length) + 1;
    std::unique_ptr<char, decltype(&std::free)> block(static_cast<char*>(std::malloc(size)),
                                                      &std::free);
    if (block == nullptr) return -1;
    if (size <= sizeof(shortText))
        std::memcpy(block.get(), shortText, size);
    else if (renderInto(ctx, block.get(), size) != length)
        return -1;  // text that changed between the two
    *result = block.release();
    return length;
}

int formatInto(char* out, int size, char const* format, va_list list) {
    ParsedFormat const parsed(format, list);
    if (parsed.context() == nullptr) return -1;
    return renderInto(*parsed.context(), out, size > 0 ? static_cast<std::size_t>(size) : 0);
}

}  // namespace

int zvsnprintf_parse(ZFormatContext* ctx, ZCodesetHandle codeset, char const* format,
                     va_list list) {
    if (ctx == nullptr || format == nullptr) return -1;
    return parse(*ctx, codeset, format, list) ? 0 : -1;
}

int zvsnprintf_render(ZFormatContext const* ctx, char* out, int size) {
    if (ctx == nullptr) return -1;
    return renderInto(*ctx, out, size > 0 ? static_cast<std::size_t>(size) : 0);
}

void zvsnprintf_done(ZFormatContext* ctx) {
    if (ctx != nullptr) done(*ctx);
}

int zvsnprintf(char* out, int size, char const* format, va_list list) {
    return formatInto(out, size, format, list);
}

int zsnprintf(char* out, int size, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const length = formatInto(out, size, format, list);
    va_end(list);
    return length;
}

int zvsprintf(char** result, char const* format, va_list list) {
    if (result == nullptr) return -1;
    // First of all, so that a caller may free it whatever comes.
    *result = nullptr;
    // An argument list is a pointer here on either word size: as a type, or as an array passed on.
    if (list == nullptr) return -1;
    ParsedFormat const parsed(format, list);
    return parsed.context() == nullptr ? -1 : renderAllocated(*parsed.context(), result);
}

int zsprintf(char** result, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const length = zvsprintf(result, format, list);
    va_end(list);
    return length;
}
