/*
 * The platform's configuration database: numbered databases of named records.
 *
 * On the platform the two libraries behind this header are its own. The ones built here stand in for them elsewhere:
 * they keep each record as a file DIRECTORY/DATABASE/RECORD, where DIRECTORY is the environment variable HODRA_DIR,
 * /var/lib/hodra without it, and a database is there when its directory is.
 *
 * Every operation returns 0 or an error number: ENODEV for a database that is not there, EBADF for one that is not
 * open, ENOLCK for one that is not locked, ENOENT for a record that is not there, or what the system says. A thread
 * that holds a lock must not take it again.
 */
#ifndef HODRA_H
#define HODRA_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Opens a database; each open wants a close. */
int open_conf_db(int database);

/* Closes a database; the last closing gives its lock back. */
int close_conf_db(int database);

/* Locks an open database against every other process and thread, waiting for those that hold it. */
int hodra_lock(int database);

/* Gives the lock back. */
int hodra_unlock(int database);

/*
 * Reads a record of a locked database. *data receives a copy that the caller releases with free, *length its size in
 * bytes. flags must be 0.
 */
int hodra_get(int database, const char* record, void** data, size_t* length, int flags);

#ifdef __cplusplus
}
#endif

#endif
