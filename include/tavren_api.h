/*
 * The client interface to the archiving daemon: the records that a program shares with it, the operations that copy,
 * compare and release them, and a function for each thing that the daemon can be asked.
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
  tavren_settings_t settings;               /* complete when the daemon sent it */
  int32_t space_limit[TAVREN_COMPARTMENTS]; /* megabytes, TAVREN_SPACE_UNLIMITED for none */
} tavren_config_t;

/* What the daemon says of a compartment. */
typedef struct tavren_compartment_status_t {
  /* Words whose meaning is the daemon's; the library carries them unchanged. */
  int32_t word1;
  int32_t word2;
  int32_t word3;
} tavren_compartment_status_t;

/* The daemon's status. */
typedef struct tavren_status_t {
  int32_t connection_time; /* seconds since the epoch when connection_status was last set, until 2038 */
  tavren_connection_status_t connection_status;                        /* of the last attempt */
  tavren_compartment_status_t compartment_status[TAVREN_COMPARTMENTS]; /* by tavren_compartment_t */
} tavren_status_t;

/* A counted byte buffer; the bytes need not end in NUL. */
typedef struct tavren_bytes_t {
  int32_t code; /* set by the daemon, not read here */
  struct {
    uint32_t data_len; /* bytes */
    char* data_val;
  } data; /* owned with the record */
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

/*
 * A connection with the daemon on this machine, in storage of the caller's: open it, make any number of calls, close it
 * once. A failed call does not close it. One thread uses a handle at a time; separate handles are independent.
 */
typedef struct tavren_api_handle_t {
  struct __rpc_client* clnt; /* the RPC library's client; NULL when there is no connection */
  int32_t error;             /* the last failure, 0 when there was none since the opening */
} tavren_api_handle_t;

/* There is no connection: tavren_api_open failed. */
#define TAVREN_API_E_CONNECT (-1)

/* The call failed: the daemon is gone, does not answer, or is not understood. */
#define TAVREN_API_E_RPC (-3)

/*
 * Each call below gives up after 25 seconds in which the daemon says nothing, or takes nothing of a long request. The
 * next call then makes a connection anew first, which can take as long as tavren_api_open: up to 60 seconds more where
 * the RPC services say nothing. (A daemon that dribbles its answer can hold a call for longer: the RPC library waits
 * for each piece anew.) It returns 0 on success. When it fails it stores TAVREN_API_E_RPC in the handle's error,
 * returns it, and leaves its results untouched; on a handle without a connection the same with TAVREN_API_E_CONNECT. A
 * daemon that has died is such a failure and never a SIGPIPE; a process that is stopped and continued while the daemon
 * has yet to take the rest of a long request can see one, too. Signals for the calling thread wait until the call is
 * over. Texts and records that a call returns belong to the caller: texts are released with free, records with their
 * *_free_contents. A text for which there is no memory is NULL, with the result 0: a message or errors then look as if
 * there were none. A reply may be as long as the daemon says: memory for it is asked for at once. The RPC library
 * itself may write to the standard error stream, for instance when it has no memory. Arguments must not be NULL but
 * where it is said.
 */

/*
 * Connects the handle with the daemon. Another version of the daemon shows at the first call. RPC services that accept
 * connections and say nothing can hold this for a minute, services or a daemon that do not even accept any more for
 * about two, and so can what the machine asks for the address of "localhost". Returns 0, or TAVREN_API_E_CONNECT.
 */
TAVREN_EXPORT int tavren_api_open(tavren_api_handle_t* handle);

/* Releases the connection; does nothing when there is none. Returns nothing; no errors. */
TAVREN_EXPORT void tavren_api_close(tavren_api_handle_t* handle);

/*
 * Writes what the handle's error means, translated, into buffer (TAVREN_API_TEXT_SIZE bytes; longer text is cut): ask
 * right after the failure and in the same thread, because the RPC library keeps its reason only until the next call,
 * and that for a failed opening once for each thread. Returns buffer.
 */
TAVREN_EXPORT char* tavren_api_errmsg(const tavren_api_handle_t* handle, char* buffer);

/* Reads whether archiving is switched on. Returns 0 or an error as above. */
TAVREN_EXPORT int tavren_api_get_state(tavren_api_handle_t* handle, tavren_state_t* state);

/* Switches archiving on or off. Returns 0 or an error as above. */
TAVREN_EXPORT int tavren_api_set_state(tavren_api_handle_t* handle, tavren_state_t state);

/* Reads the configuration into config, whose old strings are not freed. Returns 0 or an error as above. */
TAVREN_EXPORT int tavren_api_get_config(tavren_api_handle_t* handle, tavren_config_t* config);

/*
 * Sends a configuration (NULL for none; its strings must not be NULL) and a flag, true when not zero, whose meaning is
 * the daemon's. Returns 0 or an error as above.
 */
TAVREN_EXPORT int tavren_api_set_config(tavren_api_handle_t* handle, const tavren_config_t* config, int flag);

/*
 * Reads the status. Its connection time travels in 32 bits: one after January 2038 arrives as a negative number.
 * Returns 0 or an error as above.
 */
TAVREN_EXPORT int tavren_api_get_status(tavren_api_handle_t* handle, tavren_status_t* status);

/*
 * Reads the stored errors as one text, NULL when there are none. Returns 0 or an error as above. A daemon that sends
 * malformed errors is a failed assertion or a C++ exception (see TavrenError::tavren_bytes_to_errors), and so is memory
 * that runs out here: std::bad_alloc.
 */
TAVREN_EXPORT int tavren_api_get_errors(tavren_api_handle_t* handle, char** errors);

/*
 * Takes over the tunables that are not at their defaults in the daemon; all others stay as they are in this process.
 * What is wrong is skipped. Returns 0 or an error as above; memory that runs out here is a std::bad_alloc.
 */
TAVREN_EXPORT int tavren_api_load_tunables(tavren_api_handle_t* handle);

/*
 * Makes the daemon's remote commands those of this process; others keep their texts. The commands that the daemon sends
 * are all that is loaded: in a program that loads before it has made its first session, default commands that are not
 * among them are missing until the table is reset, and a session that needs one is a failed assertion. Returns 0 or an
 * error as above; memory that runs out here is a std::bad_alloc.
 */
TAVREN_EXPORT int tavren_api_load_remote_commands(tavren_api_handle_t* handle);

/* Reads the archive host into buffer (TAVREN_API_TEXT_SIZE bytes; longer is cut). Returns 0 or an error as above. */
TAVREN_EXPORT int tavren_api_get_archive_host(tavren_api_handle_t* handle, char* buffer);

/* Reads the archive directory, in the same way. */
TAVREN_EXPORT int tavren_api_get_archive_directory(tavren_api_handle_t* handle, char* buffer);

/* Asks for a task to be run. Returns 0 or an error as above. */
TAVREN_EXPORT int tavren_api_run_task(tavren_api_handle_t* handle, const char* task);

/* Asks for the audit file to be archived. Returns 0 or an error as above. */
TAVREN_EXPORT int tavren_api_request_to_archive_audit_file(tavren_api_handle_t* handle);

/*
 * Names an audit file to the daemon; whether that asks if it was archived or reports that it was, and what the answer's
 * number means, is the daemon's matter. Returns the answer, which is stored in the handle's error as well when it is
 * negative, or an error as above; a daemon that answers -1 or -3 cannot be told from one that cannot be asked.
 */
TAVREN_EXPORT int tavren_api_audit_file_was_archived(tavren_api_handle_t* handle, const char* file_name);

/*
 * Asks for the stored data to be cleared. Only this and the next three calls have a text for a refusal: what else the
 * daemon refuses is a failed call. Returns 0, with *message NULL, or why the daemon refused; or an error as above.
 */
TAVREN_EXPORT int tavren_api_clear_stored_data(tavren_api_handle_t* handle, char** message);

/* Asks for a tunable to be set. Returns 0, with *message NULL, or why the daemon refused; or an error as above. */
TAVREN_EXPORT int tavren_api_set_tunable(tavren_api_handle_t* handle, const char* name, const char* value,
                                         char** message);

/*
 * Asks for a remote command to be set. Returns 0, with *message NULL, or why the daemon refused; or an error as above.
 */
TAVREN_EXPORT int tavren_api_set_remote_command(tavren_api_handle_t* handle, const char* name, const char* text,
                                                char** message);

/* Asks for an interval to be set. Returns 0, with *message NULL, or why the daemon refused; or an error as above. */
TAVREN_EXPORT int tavren_api_set_interval(tavren_api_handle_t* handle, const char* name, const char* value,
                                          char** message);

/* Reads the table of tunables, which may be an empty text. Returns 0 or an error as above. */
TAVREN_EXPORT int tavren_api_get_tunable_table(tavren_api_handle_t* handle, char** table);

/* Reads the table of remote commands, which may be an empty text. Returns 0 or an error as above. */
TAVREN_EXPORT int tavren_api_get_remote_command_table(tavren_api_handle_t* handle, char** table);

/* Reads the table of intervals, which may be an empty text. Returns 0 or an error as above. */
TAVREN_EXPORT int tavren_api_get_interval_table(tavren_api_handle_t* handle, char** table);

/* Reads whether the daemon sleeps: not zero. Returns 0 or an error as above. */
TAVREN_EXPORT int tavren_api_is_tavrend_sleeping(tavren_api_handle_t* handle, int* sleeping);

/*
 * The same with a connection of their own, for one call: each returns what its namesake above returns, or
 * TAVREN_API_E_CONNECT when there is no connection.
 */
TAVREN_EXPORT int tavren_get_state(tavren_state_t* state);
TAVREN_EXPORT int tavren_get_archive_host(char* buffer);
TAVREN_EXPORT int tavren_get_archive_directory(char* buffer);
TAVREN_EXPORT int tavren_request_to_archive_audit_file(void);
TAVREN_EXPORT int tavren_audit_file_was_archived(const char* file_name);

TAVREN_END_C

#endif
