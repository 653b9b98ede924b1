/// Shared. ASCII bytes in text of any codeset.
#ifndef Z_UTILITY_ASCII_H
#define Z_UTILITY_ASCII_H

#include "Z/ztags.h"

/// Whether the byte is ASCII. Where a character begins, such a byte is one in every codeset that
/// the library knows.
constexpr bool zisAscii(char byte) { return static_cast<unsigned char>(byte) < 0x80; }

#endif
