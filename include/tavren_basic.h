/*
 * Conversions, display texts, times, small text files and the platform's identity, for C programs.
 *
 * Display texts are translated; static ones belong to the library. Times are seconds since the epoch. Nothing here
 * throws. Any thread may call any of it, but for the first call of tavren_get_tmp_root.
 */
#ifndef TAVREN_BASIC_H
#define TAVREN_BASIC_H

#include <stdint.h>
#include <time.h>

#include "tavren_api.h"
#include "tavren_constants.h"

TAVREN_BEGIN_C

/*
 * Reads a decimal, 0x hexadecimal or leading-zero octal number, white space around it allowed; one beyond 32 bits
 * becomes the nearest that fits. Returns 0, or -1, *value untouched, without a digit or when more follows.
 */
TAVREN_EXPORT int tavren_cstring_to_int(const char* s, int* value);

/*
 * Splits s, which stays as it is, at every byte equal to the low 8 bits of separator; empty fields count. *fields
 * receives pointers and texts in one allocation, released with one free, or NULL for an empty s. Returns the number of
 * fields; 0 with NULL also when memory ran out and the malloc handler returned.
 */
TAVREN_EXPORT int tavren_split_fields(char* s, int separator, char*** fields);

/*
 * Reads megabytes; "unlimited", in any letter case, is TAVREN_SPACE_UNLIMITED. Returns 0, or -1, *megabytes untouched,
 * when s is neither that word nor a number.
 */
TAVREN_EXPORT int tavren_parse_space_limit(const char* s, int* megabytes);

/* Returns "Enabled" for TAVREN_STATE_ENABLED and "Disabled" for any other value; static, translated. */
TAVREN_EXPORT const char* tavren_state_to_string(tavren_state_t state);

/* Returns "None", "OK", "Failed", or "Unknown" for a value outside the enumeration; static, translated. */
TAVREN_EXPORT const char* tavren_connection_status_to_string(tavren_connection_status_t status);

/*
 * Writes "Unlimited" for TAVREN_SPACE_UNLIMITED, otherwise the megabytes with their unit, translated, into buffer
 * (TAVREN_FORMAT_SIZE bytes; longer text is cut). Returns the length of the whole text.
 */
TAVREN_EXPORT int tavren_format_space_limit(int mb, char* buffer);

/*
 * The same with other words: "Not monitored" for TAVREN_SPACE_NOT_MONITORED, "Unknown" for TAVREN_SPACE_UNKNOWN and
 * "Query failed" for TAVREN_SPACE_QUERY_FAILED.
 */
TAVREN_EXPORT int tavren_format_space_used(int mb, char* buffer);

/*
 * Writes t as local time (2026/01/31 23:59:59) into buffer (TAVREN_FORMAT_SIZE bytes), or "None", translated, for a t
 * that is not positive. Returns the number of characters written.
 */
TAVREN_EXPORT int tavren_format_time(time_t t, char* buffer);

/* The same as UTC in another form: 2026-01-31T23:59:59, without a zone; "None" is not translated here. */
TAVREN_EXPORT int tavren_format_iso_time(time_t t, char* buffer);

/* Returns the whole seconds of the monotonic clock; a failing clock is a failed assertion. */
TAVREN_EXPORT int tavren_get_uptime(void);

/* Returns the milliseconds of the monotonic clock; a failing clock is a failed assertion. */
TAVREN_EXPORT int64_t tavren_get_uptime_ms(void);

/* Makes text the content of the file path. Returns 0, or -1 with errno set; what was written stays then. */
TAVREN_EXPORT int tavren_create_text_file(const char* path, const char* text);

/*
 * Reads the first line of the file path, at most size - 1 bytes of it, without its newline, into buffer. Returns 0, or
 * -1 when the file cannot be opened, read or closed, or is empty (unless size is 1).
 */
TAVREN_EXPORT int tavren_read_line_from_file(const char* path, char* buffer, int size);

/*
 * Unlinks every entry of directory but those that begin with a point, subdirectories, and those whose path has 4096
 * bytes or more; failures are ignored.
 */
TAVREN_EXPORT void tavren_delete_all_files(const char* directory);

/*
 * Returns the directory of temporary files: "/tmp", or "tavren_tmp" under the environment variable TAVREN_HOME, made
 * when missing: with the mode 0755 by tavren_setup_tmp_dir, and by an earlier call of this with what the umask leaves
 * of that. The first call decides for the life of the process: make it before threads exist. The text belongs to the
 * library; no errors.
 */
TAVREN_EXPORT const char* tavren_get_tmp_root(void);

/*
 * Which machine this is, from the platform's configuration database: read once and kept for the life of the process,
 * unless reading fails. A record shorter than the platform's type is a failed assertion.
 */

/*
 * Returns 0 and in *id the chassis identifier, at most 16 characters that belong to the library, "none" without a name;
 * or the platform's error number, *id untouched, when the step named in *failed_call failed.
 */
TAVREN_EXPORT int tavren_get_chassis_id(const char** id, const char** failed_call);

/* Returns 0 and in *number the number of this service processor, or as tavren_get_chassis_id does. */
TAVREN_EXPORT int tavren_get_sp_number(int* number, const char** failed_call);

/* Returns how many regular domains the platform can hold, 24 when the database cannot be read. */
TAVREN_EXPORT int tavren_get_max_regular_domains(void);

/* Returns how many CPU and memory units the platform can hold, 16 when the database cannot be read. */
TAVREN_EXPORT int tavren_get_max_cmus(void);

TAVREN_END_C

#endif
