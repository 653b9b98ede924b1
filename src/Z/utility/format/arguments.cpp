#include "Z/utility/format/arguments.h"

#include <cstdlib>

#include "Z/utility/format/records.h"

namespace zfc::format {
namespace {

/// Hands out argument numbers, in the order in which specifications take them.
class Numbering {
  public:
    // No overflow: there are at most INT_MAX / 6 of them.
    explicit Numbering(int specCount) : bound(3 * specCount) {}

    /// The number for a use: the one it names, else the one behind the last taken.
    int take(bool named, int number) {
        last = named ? number : last + 1;
        highest = std::max(highest, last);
        if (named) highestNamed = std::max(highestNamed, last);
        return last;
    }

    [[nodiscard]] int count() const { return highest; }
    [[nodiscard]] int namedCount() const { return highestNamed; }
    /// A specification takes three arguments at most, so a number above the bound leaves a gap.
    [[nodiscard]] bool hasSureGap() const { return highestNamed > bound; }

  private:
    int bound;
    int last = 0;
    int highest = 0;
    int highestNamed = 0;
};

bool isSet(ZFormatSpec const& spec, unsigned flag) { return (spec.flags & flag) != 0; }

/// False as soon as a gap is certain.
bool numberSpec(ZFormatSpec& spec, Numbering& numbers) {
    // ISO C takes them in this order: width, precision, value.
    if (isSet(spec, widthStar)) spec.width = numbers.take(isSet(spec, widthNamed), spec.width);
    if (isSet(spec, precisionStar))
        spec.precision = numbers.take(isSet(spec, precisionNamed), spec.precision);
    spec.argPos = isSet(spec, percentLiteral)
                      ? 0  // converts none, whatever it names
                      : numbers.take(isSet(spec, namesArgument), spec.argPos);
    // Known before there are slots: one great number must not cost gigabytes.
    return !numbers.hasSureGap();
}

bool provideSlots(ZFormatContext& ctx, int count) {
    if (count < ZFORMAT_INLINE_ARGS) return true;
    std::size_t bytes = 0;
    auto const slots = static_cast<std::size_t>(count) + 1;  // numbers begin with 1
    // On 32 bits the product can wrap.
    if (__builtin_mul_overflow(slots, sizeof(ZFormatArg), &bytes)) return false;
    void* const block = std::malloc(bytes);
    if (block == nullptr) return false;
    ctx.args = static_cast<ZFormatArg*>(block);
    return true;
}

/// Types when no argument is named: each has one use, and there are no gaps.
void takeTypes(ZFormatSpec const& spec, ZFormatArg* args) {
    if (isSet(spec, widthStar)) args[spec.width].type = unsignedInt;
    if (isSet(spec, precisionStar)) args[spec.precision].type = unsignedInt;
    if (!isSet(spec, percentLiteral)) args[spec.argPos].type = spec.argType;
}

void clearSlots(ZFormatArg* args, int count) {
    for (int i = 1; i <= count; ++i) {
        args[i].type = noType;
        args[i].value.use = {static_cast<short>(ArgClass::none), false};
    }
}

bool isText(ArgClass argClass) {
    return argClass == ArgClass::narrow || argClass == ArgClass::wide;
}

/// The class of an argument that is used as both; ArgClass::none when it cannot be.
ArgClass merged(ArgClass before, ArgClass now) {
    if (before == now || before == ArgClass::none) return now;
    if (before == ArgClass::address && isText(now)) return now;
    if (now == ArgClass::address && isText(before)) return before;
    return ArgClass::none;
}

/// Notes one use of an argument; false when it disagrees with the earlier ones.
bool noteUse(ZFormatArg& arg, ArgClass argClass, bool named) {
    // Uses are noted in the place of the value, which is free until the arguments are fetched.
    auto& use = arg.value.use;
    ArgClass const both = merged(static_cast<ArgClass>(use.argClass), argClass);
    if (both == ArgClass::none) return false;
    use.argClass = static_cast<short>(both);
    if (named) use.named = true;
    return true;
}

bool noteUses(ZFormatSpec const& spec, ZFormatArg* args) {
    if (isSet(spec, widthStar) &&
        !noteUse(args[spec.width], ArgClass::integer, isSet(spec, widthNamed)))
        return false;
    if (isSet(spec, precisionStar) &&
        !noteUse(args[spec.precision], ArgClass::integer, isSet(spec, precisionNamed)))
        return false;
    if (isSet(spec, percentLiteral)) return true;
    ZFormatArg& arg = args[spec.argPos];
    if (arg.type == noType) arg.type = spec.argType;
    return noteUse(arg, rowOf(spec.argType).argClass, isSet(spec, namesArgument));
}

/// Every argument is used, every one up to the highest named number is named; what serves only as
/// width or precision is an integer.
bool settleTypes(ZFormatArg* args, int count, int namedCount) {
    for (int i = 1; i <= count; ++i) {
        auto const& use = args[i].value.use;
        // A va_list cannot step over an argument whose type nobody knows.
        if (static_cast<ArgClass>(use.argClass) == ArgClass::none) return false;
        if (i <= namedCount && !use.named) return false;
        if (args[i].type == noType) args[i].type = unsignedInt;
    }
    return true;
}

/// Types when arguments are named, and may be used several times, or not at all.
bool agreeOnTypes(ZFormatContext& ctx, Numbering const& numbers) {
    // Not for formats without names, where every slot is written once, and which are the rule.
    clearSlots(ctx.args, numbers.count());
    for (int i = 0; i < ctx.specCount; ++i)
        if (!noteUses(ctx.specs[i], ctx.args)) return false;
    return settleTypes(ctx.args, numbers.count(), numbers.namedCount());
}

}  // namespace

int numberArguments(ZFormatContext& ctx) {
    Numbering numbers(ctx.specCount);
    for (int i = 0; i < ctx.specCount; ++i)
        if (!numberSpec(ctx.specs[i], numbers)) return -1;
    if (!provideSlots(ctx, numbers.count())) return -1;
    if (numbers.namedCount() > 0) return agreeOnTypes(ctx, numbers) ? numbers.count() : -1;
    for (int i = 0; i < ctx.specCount; ++i)
        takeTypes(ctx.specs[i], ctx.args);
    return numbers.count();
}

void fetchArguments(ZFormatContext& ctx, int count, va_list list) {
    ArgumentList arguments(list);
    for (int i = 1; i <= count; ++i)
        arguments.fetch(ctx.args[i]);
}

}  // namespace zfc::format
