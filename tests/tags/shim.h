/// What one side of the test offers: everything a program does with the library that crosses its
/// boundary. Compiled twice, as `first` and as `second`, each against another build.
#ifndef ZFC_TESTS_TAGS_SHIM_H
#define ZFC_TESTS_TAGS_SHIM_H

/// Builds, edits and prints a string; writes the text into `out`.
using Compose = void (*)(char const* word, char* out, unsigned int size);
/// Throws the library's own ZInvalidParameterException.
using Throw = void (*)();
/// Calls `thrower` and says what came: 1 this side's ZException, 2 anything else, 0 nothing.
using Catch = int (*)(Throw thrower);

extern "C" {
void first_compose(char const* word, char* out, unsigned int size);
void first_throw();
int first_catch(Throw thrower);
void second_compose(char const* word, char* out, unsigned int size);
void second_throw();
int second_catch(Throw thrower);
}

#endif
