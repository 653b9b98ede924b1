#include "Z/utility/format/arguments.h"
#include "Z/utility/format/records.h"
#include "Z/utility/format/spec_reader.h"

namespace zfc::format {
namespace {

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

}  // namespace

bool readPlain(ZFormatContext& ctx, PlainTables& tables, va_list list) {
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
