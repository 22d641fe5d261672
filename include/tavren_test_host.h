/*
 * The test of an archive host with one call, for command-line programs.
 *
 * It tries the whole way that archiving takes, and claims the archive directory for this chassis, so that no other
 * archives into the same place. It needs the program's private temporary directory (tavren_setup_tmp_dir) when a host
 * key is configured, and belongs to one thread.
 */
#ifndef TAVREN_TEST_HOST_H
#define TAVREN_TEST_HOST_H

#include "tavren_api.h"
#include "tavren_constants.h"

TAVREN_BEGIN_C

/*
 * Logs in with a complete settings record (NULL is a failed assertion), writes, reads, lists, measures and removes a
 * directory "test" in the archive directory, and leaves an empty file ".chassis." and the chassis identifier there.
 * *message becomes NULL. The secure shell child is deliberately not stopped: it ends with the process.
 *
 * Returns 0. Every failure passes to the caller as a C++ exception, TavrenError (TavrenTimeout or
 * TavrenOperationCancelled in a few places), the session then deliberately being abandoned with its memory: call it
 * from C++, or through a function in C++ that catches.
 */
TAVREN_EXPORT int tavren_test_host(const tavren_settings_t* settings, char** message);

TAVREN_END_C

#endif
