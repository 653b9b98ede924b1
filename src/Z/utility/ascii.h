/// Shared. ASCII bytes in text of any codeset.
#ifndef Z_UTILITY_ASCII_H
#define Z_UTILITY_ASCII_H

#include "Z/ztags.h"

/// Whether the byte is ASCII. Where a character begins, such a byte is one in every codeset that
/// the library knows.
constexpr bool zisAscii(char byte) { return static_cast<unsigned char>(byte) < 0x80; }
constexpr bool zisAsciiCharacter(int character) { return character >= 0 && character < 0x80; }

/// The byte in the other case when it is an ASCII letter, whatever locale the process has set.
constexpr char zlowerAscii(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}
constexpr char zupperAscii(char byte) {
    return byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 'a' + 'A') : byte;
}

#endif
