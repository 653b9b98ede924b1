/* What the program plugins.cpp and its plug-ins agree on. All of it is C, so that a plug-in may be
   built by another compiler, and against another release of the library, than the program. */
#ifndef EXAMPLES_GREETER_H
#define EXAMPLES_GREETER_H

/* Raised when a function below changes. */
#define GREETER_INTERFACE 1

#ifdef __cplusplus
extern "C" {
#endif

/* Called once, before all others, with the program's GREETER_INTERFACE; 0 when the plug-in can work
   with it. */
typedef int greeter_start_function(int interface);

/* Writes a greeting for `name` into `out`, which has room for `size` bytes. The length of the whole
   greeting, or -1 when it fails. */
typedef int greeter_greet_function(char const* name, char* out, int size);

#ifdef __cplusplus
}
#endif

#endif
