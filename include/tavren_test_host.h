/*
 * The test of an archive host with one call, for command-line programs: the whole way that archiving takes.
 */
#ifndef TAVREN_TEST_HOST_H
#define TAVREN_TEST_HOST_H

#include "tavren_api.h"
#include "tavren_constants.h"

TAVREN_BEGIN_C

/*
 * Logs in with a complete settings record (NULL is a failed assertion), tries a directory "test" in the archive
 * directory and removes it with all that is in it, also one that was there before, and claims the archive directory for
 * this chassis by an empty file ".chassis." and the chassis identifier. A host key needs the private temporary
 * directory (tavren_setup_tmp_dir). For one thread.
 *
 * Returns 0 with *message NULL. Every failure passes to the caller as a C++ exception, TavrenError (TavrenTimeout or
 * TavrenOperationCancelled in a few places): call it through a function in C++ that catches. The secure shell child is
 * deliberately not stopped and ends with the process; a failure keeps the session's memory, too.
 */
TAVREN_EXPORT int tavren_test_host(const tavren_settings_t* settings, char** message);

TAVREN_END_C

#endif
