/* A plug-in that needs nothing. */
__attribute__((visibility("default"))) int plain_answer(void) { return 42; }
