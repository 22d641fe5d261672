/*
 * What libhodra and hodra-put share: where the files of the stand-in are, and how one is written.
 */
#ifndef HODRAHELPER_H
#define HODRAHELPER_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
  HODRA_DATABASES = 16, /* numbered from 0 */
  HODRA_PATH_SIZE = 4096
};

/*
 * Writes the path of a file of a database (NULL: of the database itself) into path, HODRA_PATH_SIZE bytes. Returns 0,
 * EINVAL for a name that is empty, hidden or not a plain file name, or ENAMETOOLONG.
 */
int hodrahelper_path(int database, const char* name, char* path);

/* Makes a database that holds nothing, unless it is there. Returns 0 or an error number. */
int hodrahelper_make(int database);

/*
 * Writes a record of a database that is there; a reader sees the old record or the new one. Returns 0 or an error
 * number.
 */
int hodrahelper_put(int database, const char* record, const void* data, size_t length);

#ifdef __cplusplus
}
#endif

#endif
