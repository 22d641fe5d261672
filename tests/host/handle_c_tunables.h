#ifndef TESTS_HOST_HANDLE_C_TUNABLES_H
#define TESTS_HOST_HANDLE_C_TUNABLES_H

#ifdef __cplusplus
extern "C" {
#endif

/* Sets a tunable of the library, for a program in C. A refusal ends the program. */
void set_tunable(const char* name, const char* value);

#ifdef __cplusplus
}
#endif

#endif
