/*
 * The records that a program shares with the archiving daemon, and the operations that copy, compare and release
 * them.
 *
 * A record is built by zero-filling it and setting its members; its own storage always belongs to the caller. A copy
 * made here owns its strings, which the matching *_free_contents releases. A settings record is complete when all six
 * strings are set (empty strings are allowed). The operations keep no state and take no lock: a record must not be
 * copied from while another thread changes it. Integers are 32 bits wide on every target.
 */
#ifndef TAVREN_API_H
#define TAVREN_API_H

#include <stdint.h>

#include "tavren_constants.h"

TAVREN_BEGIN_C

/* Whether log archiving is switched on. Only the value 1 counts as enabled. */
typedef enum tavren_state_t {
  TAVREN_STATE_DISABLED = 0,
  TAVREN_STATE_ENABLED = 1,
} tavren_state_t;

/* The outcome of the most recent attempt to reach the archive host. */
typedef enum tavren_connection_status_t {
  TAVREN_CONNECTION_NONE = 0,
  TAVREN_CONNECTION_OK = 1,
  TAVREN_CONNECTION_FAILED = 2,
} tavren_connection_status_t;

/* The two storage compartments: indexes of the per-compartment arrays. The daemon gives them their meaning. */
typedef enum tavren_compartment_t {
  TAVREN_COMPARTMENT_0 = 0,
  TAVREN_COMPARTMENT_1 = 1,
} tavren_compartment_t;

/* Number of compartments. */
#define TAVREN_COMPARTMENTS 2

/* Where the archive host is and how to log in. NUL-terminated strings on the heap, all NULL in an empty record. */
typedef struct tavren_settings_t {
  char* host;        /* name or address */
  char* dir;         /* archive directory on that host */
  char* user;        /* login name */
  char* password;    /* plain text */
  char* host_key;    /* public host key: type, blank, encoded key; empty when none is configured */
  char* fingerprint; /* of host_key */
} tavren_settings_t;

/* The daemon's configuration. */
typedef struct tavren_config_t {
  tavren_settings_t settings;
  int32_t space_limit[TAVREN_COMPARTMENTS]; /* megabytes, TAVREN_SPACE_UNLIMITED for none */
} tavren_config_t;

/* Three words that the daemon fills; the library carries them unchanged. */
typedef struct tavren_compartment_status_t {
  int32_t word1;
  int32_t word2;
  int32_t word3;
} tavren_compartment_status_t;

/* The daemon's status. */
typedef struct tavren_status_t {
  int32_t connection_time; /* seconds since the epoch when connection_status was last set, until 2038 */
  tavren_connection_status_t connection_status;
  tavren_compartment_status_t compartment_status[TAVREN_COMPARTMENTS];
} tavren_status_t;

/* A counted byte buffer; the bytes need not end in NUL. */
typedef struct tavren_bytes_t {
  int32_t code; /* set by the daemon, not read here */
  struct {
    uint32_t data_len; /* bytes */
    char* data_val;
  } data;
} tavren_bytes_t;

/*
 * Copies all six strings of src, none of which may be NULL (a failed assertion), into dest, whose previous pointers
 * are overwritten, not freed. Returns nothing; strings for which there is no memory are left NULL.
 */
TAVREN_EXPORT void tavren_settings_copy(const tavren_settings_t* src, tavren_settings_t* dest);

/*
 * Frees the six strings, the password wiped first, and sets the pointers to NULL, so that a second call is harmless.
 * Returns nothing; no errors.
 */
TAVREN_EXPORT void tavren_settings_free_contents(tavren_settings_t* settings);

/*
 * Compares host, dir, user, password and host_key; the fingerprint follows from the key and does not count. NULL
 * equals only NULL. Returns 1 when all are equal, otherwise 0.
 */
TAVREN_EXPORT int tavren_settings_are_equal(const tavren_settings_t* a, const tavren_settings_t* b);

/*
 * Copies the settings as tavren_settings_copy does, and both limits. Returns nothing.
 */
TAVREN_EXPORT void tavren_config_copy(const tavren_config_t* src, tavren_config_t* dest);

/*
 * Frees what the settings hold, as tavren_settings_free_contents does; the limits stay. Returns nothing; no errors.
 */
TAVREN_EXPORT void tavren_config_free_contents(tavren_config_t* config);

TAVREN_END_C

#endif
