/// Reading the formats that are the rule in one pass.
#ifndef Z_UTILITY_FORMAT_PLAIN_H
#define Z_UTILITY_FORMAT_PLAIN_H

#include <array>
#include <cstdarg>

#include "Z/utility/format/arguments.h"
#include "Z/utility/format/records.h"
#include "Z/utility/format/spec_reader.h"

namespace zfc::format {

/// Fetches the arguments of one specification after the other.
class ArgumentTable {
  public:
    ArgumentTable(ZFormatArg* slots, va_list from) : args(slots), list(from) {}

    /// In the order that ISO C gives: width, precision, value.
    void take(ZFormatSpec& spec) {
        if ((spec.flags & (widthStar | precisionStar)) != 0) takeStars(spec);
        if ((spec.flags & percentLiteral) == 0) spec.argPos = fetch(spec.argType);
    }

  private:
    void takeStars(ZFormatSpec& spec) {
        if ((spec.flags & widthStar) != 0) spec.width = fetch(unsignedInt);
        if ((spec.flags & precisionStar) != 0) spec.precision = fetch(unsignedInt);
    }

    /// The number of the argument that is fetched.
    int fetch(int type) {
        args[++last].type = type;
        list.fetch(args[last]);
        return last;
    }

    ZFormatArg* args;
    ArgumentList list;
    int last = 0;
};

/// What a plain format needs: it names no argument, as few formats do, and is not long.
constexpr int maxPlainSpecs = 16;
struct PlainTables {
    std::array<ZFormatSpec, maxPlainSpecs> specs;
    std::array<ZFormatArg, 3 * maxPlainSpecs + 1> args;  // width, precision, value; from 1 on
};

/// Reads `ctx.format`, numbers and fetches its arguments at once, into `tables`, which `ctx` then
/// refers to. False for a format that is not plain, or malformed: no text was looked into, and
/// `ctx` is to be prepared anew.
[[nodiscard]] inline bool readPlain(ZFormatContext& ctx, PlainTables& tables, va_list list) {
    ArgumentTable arguments(tables.args.data(), list);
    ctx.specs = tables.specs.data();
    ctx.specCount = 0;
    ctx.args = tables.args.data();
    for (char const* at = ctx.format; *(at = nextSpec(at)) != '\0';) {
        if (ctx.specCount == maxPlainSpecs) return false;
        ZFormatSpec& spec = ctx.specs[ctx.specCount++];
        if (!SpecReader(spec, at).read() || (spec.flags & namesArgument) != 0) return false;
        arguments.take(spec);
        at = spec.end;
    }
    return true;
}

}  // namespace zfc::format

#endif
