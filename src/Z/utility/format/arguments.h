/// The arguments of one call, fetched one after the other.
#ifndef Z_UTILITY_FORMAT_ARGUMENTS_H
#define Z_UTILITY_FORMAT_ARGUMENTS_H

#include <cstdarg>

#include "Z/utility/format/records.h"

namespace zfc::format {

/// A copy of a caller's list, which stays where it is.
class ArgumentList {
  public:
    explicit ArgumentList(va_list from) { va_copy(list, from); }
    ~ArgumentList() { va_end(list); }
    ArgumentList(ArgumentList const&) = delete;
    ArgumentList& operator=(ArgumentList const&) = delete;

    /// Fetches the next argument as the type that `arg` has. ISO C passes what is shorter than an
    /// int as one.
    void fetch(ZFormatArg& arg) {
        auto& value = arg.value;
        switch (arg.type) {
            case byteChar:
                value.integer = static_cast<unsigned char>(va_arg(list, int));
                break;
            case wideChar:
            case unsignedShort:
                value.integer = static_cast<unsigned short>(va_arg(list, int));
                break;
            case signedShort:
                value.integer = static_cast<short>(va_arg(list, int));
                break;
            case signedInt:
                value.integer = va_arg(list, int);
                break;
            case unsignedInt:
                value.integer = va_arg(list, unsigned);
                break;
            case signedLong:
                value.integer = va_arg(list, long);
                break;
            case unsignedLong:
                // Above LLONG_MAX negative, as an unsigned long long is below.
                value.integer = static_cast<long long>(va_arg(list, unsigned long));
                break;
            case signedLongLong:
            case unsignedLongLong:
                value.integer = va_arg(list, long long);
                break;
            case text:
            case wideText:
            case address:
                value.pointer = va_arg(list, void*);
                break;
            case doubleE:
            case doubleF:
            case doubleG:
                value.real = va_arg(list, double);
                break;
            case longDoubleE:
            case longDoubleF:
            case longDoubleG:
                value.longReal = va_arg(list, long double);
                break;
            default:
                break;
        }
    }

  private:
    va_list list;
};

}  // namespace zfc::format

#endif
