/*
 * A session with the archive host, and the host's key, for C programs.
 *
 * A handle stands for one login. tavren_hp_new makes it, tavren_hp_open connects and changes to the archive directory,
 * to which the file names below are relative, tavren_hp_close ends the connection with all that belongs to it, and
 * tavren_hp_destroy releases the handle. Close before you destroy: destroying alone deliberately leaves the secure
 * shell child and its descriptors behind. tavren_hp_create, which makes and connects in one, leaves them behind also
 * when it fails, so a program that tries again for years would run out of descriptors: new programs use the former.
 * The program's private temporary directory (tavren_setup_tmp_dir) must exist when a host key is configured.
 *
 * A transfer is one start, any number of continues and one end. After a failed one probing and removing are failed
 * assertions; another start is not refused, but what the far shell would make of it is unknown. After a stream the
 * child is gone. Close in both cases, and open again. A file name that is refused, because there is a newline behind
 * its last slash, is no failed transfer: the session is as it was. Streams take such names.
 *
 * Functions with a message pointer set it to a text that the caller owns and releases with free when they fail for a
 * reason that has one. Making, opening and closing throw nothing. From the others a TavrenTimeout or
 * TavrenOperationCancelled is not converted: it passes to the caller as a C++ exception, as anything else but the kinds
 * named below does. A handle is used by one thread at a time, except that any thread may call tavren_hp_kill_ssh.
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
 * Makes a handle with a complete settings record, which is copied (a NULL string in it is a failed assertion), and does
 * not connect. Returns the handle with *message NULL, or NULL, nothing left behind, with the reason in *message, which
 * is NULL when there was no memory even for that.
 */
TAVREN_EXPORT tavren_hp_t* tavren_hp_new(const tavren_settings_t* settings, char** message);

/*
 * Logs in; a handle that is connected stays as it is. Returns 0 with *message NULL, or -1 with the reason in *message
 * as above: the child is stopped then, which can take 2 seconds, and nothing of the attempt is left behind. It may be
 * tried again at any time.
 */
TAVREN_EXPORT int tavren_hp_open(tavren_hp_t* handle, char** message);

/*
 * Ends the connection, whatever became of it: stops its child (SIGTERM, after 2 seconds SIGKILL) and releases its
 * memory and descriptors. Does nothing when there is none. The handle may be opened again. Returns nothing; no errors.
 * No other thread may be in tavren_hp_kill_ssh meanwhile.
 */
TAVREN_EXPORT void tavren_hp_close(tavren_hp_t* handle);

/*
 * tavren_hp_new and tavren_hp_open in one, for programs that connect once. Logs in with a complete settings record,
 * which is copied (a NULL string in it is a failed assertion). Returns the handle with *message NULL; NULL with the
 * reason in *message, or with *message NULL when memory ran out. A failed create deliberately keeps the memory and the
 * child of the attempt.
 */
TAVREN_EXPORT tavren_hp_t* tavren_hp_create(const tavren_settings_t* settings, char** message);

/*
 * Releases the session's objects and the handle, which must not be NULL; what is connected keeps running, so close
 * first. Returns nothing; no errors.
 */
TAVREN_EXPORT void tavren_hp_destroy(tavren_hp_t* handle);

/*
 * Starts sending a file of size bytes to file_name with the permission bits mode. Returns 0 with *message NULL, or -1
 * with the reason in *message, NULL when memory ran out.
 */
TAVREN_EXPORT int tavren_hp_start_send_file(tavren_hp_t* handle, const char* file_name, uint32_t size, uint32_t mode,
                                            char** message);

/*
 * Sends the next length bytes of the file. Returns 0 with *message NULL, or -1 with the reason in *message, NULL when
 * memory ran out.
 */
TAVREN_EXPORT int tavren_hp_continue_send_file(tavren_hp_t* handle, const char* data, uint32_t length, char** message);

/*
 * Ends the file once all its bytes are sent and waits for the far side's word that it arrived. Returns 0 with
 * *message NULL, or -1 with the reason in *message; any other exception leaves *message untouched.
 */
TAVREN_EXPORT int tavren_hp_end_send_file(tavren_hp_t* handle, char** message);

/*
 * Starts sending data of unknown length to file_name. Returns 0 with *message NULL, or -1 with the reason in
 * *message, NULL when memory ran out.
 */
TAVREN_EXPORT int tavren_hp_start_send_stream(tavren_hp_t* handle, const char* file_name, char** message);

/*
 * Sends the next length bytes of the stream. Returns 0 with *message NULL, or -1 with the reason in *message, NULL
 * when memory ran out.
 */
TAVREN_EXPORT int tavren_hp_continue_send_stream(tavren_hp_t* handle, const char* data, uint32_t length,
                                                 char** message);

/*
 * Ends the stream, and the session's child with it. Returns 0 with *message NULL, or -1 with the reason in *message;
 * any other exception leaves *message untouched.
 */
TAVREN_EXPORT int tavren_hp_end_send_stream(tavren_hp_t* handle, char** message);

/*
 * Proves that file_name can be created, written and read, and removes it. Returns 0 with *message NULL, or -1 with
 * the reason in *message; any other exception than an archive host's failure leaves *message untouched.
 */
TAVREN_EXPORT int tavren_hp_try_to_create_file(tavren_hp_t* handle, const char* file_name, char** message);

/*
 * Removes file_name; a file that is not there is no failure. Returns 0 with *message NULL, or -1 with the reason in
 * *message; any other exception than an archive host's failure leaves *message untouched.
 */
TAVREN_EXPORT int tavren_hp_remove_file(tavren_hp_t* handle, const char* file_name, char** message);

/*
 * Sends SIGTERM to the session's secure shell child, which must have been started; any thread may call it to break a
 * request that another one waits in. Returns nothing; a child that is gone is no error.
 */
TAVREN_EXPORT void tavren_hp_kill_ssh(tavren_hp_t* handle);

/*
 * Host keys. They are texts: key type, blank, encoded key. The functions need the program's private temporary directory
 * (a failed assertion otherwise) and files of fixed names there, so call them from one thread.
 */

/*
 * Fetches the public key that host, a name or an address, shows; nothing says that it is the right one. Returns 0 with
 * the key in key (TAVREN_HOST_KEY_SIZE bytes) and *error NULL, or -1, key untouched, with the reason in *error, which
 * the caller frees. A host that does not answer in time is a TavrenTimeout, which passes to the caller as a C++
 * exception.
 */
TAVREN_EXPORT int tavren_download_host_key(const char* host, char* key, char** error);

/*
 * Computes the fingerprint of key with the system's key generator. Returns 0 with the fingerprint in fingerprint
 * (TAVREN_FINGERPRINT_SIZE bytes), or -1 with the reason, translated, in error (TAVREN_MESSAGE_SIZE bytes). Throws
 * nothing.
 */
TAVREN_EXPORT int tavren_host_key_fingerprint(const char* key, char* fingerprint, char* error);

/* Returns the path of awk, or "awk" when it is in none of its places; found once, the text belongs to the library. */
TAVREN_EXPORT const char* tavren_get_awk_path(void);

/* Returns the path of ssh-keygen, or "ssh-keygen" when it is in none of its places; found once, as above. */
TAVREN_EXPORT const char* tavren_get_ssh_keygen_path(void);

TAVREN_END_C

#endif
