/*
 * A session with the archive host, and the host's key, for C programs. How a session lives: tavren_sessions(7).
 *
 * Names of files are relative to the archive directory. With a host key in the settings the program's private temporary
 * directory (tavren_setup_tmp_dir) must exist. One thread at a time uses a handle, but any may call tavren_hp_kill_ssh.
 *
 * A transfer is one start, any number of continues and one end. After a failed transfer, and after a stream, close and
 * open again: probing and removing are failed assertions then, and what another start does is unknown. A file name that
 * is refused, for a newline behind its last slash, is no failed transfer; streams take such names.
 *
 * A function with a message returns 0 with *message NULL, or -1 with the reason in *message: the caller's, released
 * with free; NULL when there was no memory for its text. Exceptions of other classes than TavrenError, such as
 * TavrenTimeout and TavrenOperationCancelled, pass to the caller, and *message says nothing then; but not where a
 * function is said to throw nothing, and not for want of memory where it says what it does then.
 */
#ifndef TAVREN_HOST_UTIL_H
#define TAVREN_HOST_UTIL_H

#include <stdint.h>

#include "tavren_api.h"
#include "tavren_constants.h"

TAVREN_BEGIN_C

/* A session's handle; what is in it is the library's. */
typedef struct tavren_hp_t tavren_hp_t;

/*
 * Makes a handle and does not connect. settings, a complete record (a NULL string is a failed assertion), is copied.
 * Returns the handle with *message NULL, or NULL, nothing left behind, with the reason in *message, which is NULL when
 * there was no memory even for that. Throws nothing.
 */
TAVREN_EXPORT tavren_hp_t* tavren_hp_new(const tavren_settings_t* settings, char** message);

/*
 * Logs in and changes to the archive directory; does nothing when connected. A failure stops the child, which can take
 * 2 seconds, and leaves nothing behind: try again at any time. *message as tavren_hp_new has it. Throws nothing.
 */
TAVREN_EXPORT int tavren_hp_open(tavren_hp_t* handle, char** message);

/*
 * Ends the connection, if there is one, whatever became of it: stops its child (SIGTERM, after 2 seconds SIGKILL) and
 * releases its memory and descriptors. Throws nothing. No other thread may be in tavren_hp_kill_ssh meanwhile.
 */
TAVREN_EXPORT void tavren_hp_close(tavren_hp_t* handle);

/*
 * tavren_hp_new and tavren_hp_open in one. New programs use those: a failure of this one deliberately keeps memory,
 * child and descriptors of the attempt. Returns the handle, or NULL with the reason in *message, NULL without memory.
 */
TAVREN_EXPORT tavren_hp_t* tavren_hp_create(const tavren_settings_t* settings, char** message);

/* Releases the handle, not NULL. Close before: the child of a connected one deliberately keeps running. No errors. */
TAVREN_EXPORT void tavren_hp_destroy(tavren_hp_t* handle);

/*
 * Starts sending a file of size bytes to file_name with the permission bits mode. No memory: -1 with *message NULL. A
 * far copy program that dies in the middle leaves the rest of the data to the shell, which takes it for commands.
 */
TAVREN_EXPORT int tavren_hp_start_send_file(tavren_hp_t* handle, const char* file_name, uint32_t size, uint32_t mode,
                                            char** message);

/* Sends the next length bytes of the file. No memory: -1 with *message NULL. */
TAVREN_EXPORT int tavren_hp_continue_send_file(tavren_hp_t* handle, const char* data, uint32_t length, char** message);

/* Ends the file once all its bytes are sent and waits for the far side's word that it arrived. */
TAVREN_EXPORT int tavren_hp_end_send_file(tavren_hp_t* handle, char** message);

/* Starts sending data of unknown length to file_name. No memory: -1 with *message NULL. */
TAVREN_EXPORT int tavren_hp_start_send_stream(tavren_hp_t* handle, const char* file_name, char** message);

/* Sends the next length bytes of the stream. No memory: -1 with *message NULL. */
TAVREN_EXPORT int tavren_hp_continue_send_stream(tavren_hp_t* handle, const char* data, uint32_t length,
                                                 char** message);

/*
 * Ends the stream, and the session's child with it. Returns 0 when the child ended normally, which does not say that
 * all has arrived: a far cat that is killed alone cannot be seen; -1 when it ended by a signal (tavren_hp_kill_ssh) or
 * with status 255 (which a program that reaps all children cannot know), with its last lines in *message, or when it
 * said something instead.
 */
TAVREN_EXPORT int tavren_hp_end_send_stream(tavren_hp_t* handle, char** message);

/*
 * Proves that file_name can be created, written and read. What was in it is lost. Its removal is sent, but the result
 * is not awaited: after a failure, or when the connection is closed at once, the file can stay.
 */
TAVREN_EXPORT int tavren_hp_try_to_create_file(tavren_hp_t* handle, const char* file_name, char** message);

/* Removes file_name; a file that is not there is no failure. */
TAVREN_EXPORT int tavren_hp_remove_file(tavren_hp_t* handle, const char* file_name, char** message);

/* Sends SIGTERM to the session's child, which must have been started: a request waiting for it fails. No errors. */
TAVREN_EXPORT void tavren_hp_kill_ssh(tavren_hp_t* handle);

/*
 * Host keys. They are texts: key type, blank, encoded key. The functions need the program's private temporary directory
 * (a failed assertion otherwise) and files of fixed names there, so call them from one thread.
 */

/*
 * Fetches the public key that host, a name or an address, shows; nothing says that it is the right one. Returns 0 with
 * it in key (TAVREN_HOST_KEY_SIZE bytes) and *error NULL, or -1, key untouched, with the reason in *error, the
 * caller's, NULL when there was no memory for its text. A host that does not answer in time is a TavrenTimeout, a C++
 * exception.
 */
TAVREN_EXPORT int tavren_download_host_key(const char* host, char* key, char** error);

/*
 * Returns 0 with the fingerprint of key in fingerprint (TAVREN_FINGERPRINT_SIZE bytes), or -1 with the reason,
 * translated, in error (TAVREN_MESSAGE_SIZE bytes). Runs ssh-keygen by system(3), during which SIGINT and SIGQUIT are
 * ignored and SIGCHLD is blocked. Throws nothing.
 */
TAVREN_EXPORT int tavren_host_key_fingerprint(const char* key, char* fingerprint, char* error);

/* Returns the path of awk, or "awk" when it is in none of its places; found once, the text belongs to the library. */
TAVREN_EXPORT const char* tavren_get_awk_path(void);

/* Returns the path of ssh-keygen, or "ssh-keygen" when it is in none of its places; found once, as above. */
TAVREN_EXPORT const char* tavren_get_ssh_keygen_path(void);

TAVREN_END_C

#endif
