/*
 * The library's calls that may report by C++ exceptions, for a program in C: no exception leaves these functions.
 */
#ifndef TOOLS_GUARDED_CALLS_H
#define TOOLS_GUARDED_CALLS_H

#include <tavren.h>

TAVREN_BEGIN_C

/*
 * Fetches the key that host shows. Returns 0 with the key in key (TAVREN_HOST_KEY_SIZE bytes), or -1 with the reason in
 * *message, which the caller frees, and in *advice what to do, a static text or NULL.
 */
int fetch_host_key(const char* host, char* key, char** message, const char** advice);

/*
 * Tests the host and the directory of settings and claims the directory for this chassis. Returns 0, or -1 with the
 * reason in *message, which the caller frees, and in *advice what to do, a static text or NULL.
 */
int test_and_claim(const tavren_settings_t* settings, char** message, const char** advice);

/*
 * tavren_hp_continue_send_file, for a host that may stop taking data. Returns 0, or -1 with the reason in *message,
 * which the caller frees.
 */
int continue_send_file(tavren_hp_t* session, const char* data, uint32_t length, char** message);

TAVREN_END_C

#endif
