/*
 * Conversions, display texts, times, small text files and the platform's identity, for C programs.
 *
 * Display texts go through the message catalogue of the text domain "tavren"; static ones belong to the library.
 * Nothing here throws. Any thread may call any of it, but for the first call of tavren_get_tmp_root.
 */
#ifndef TAVREN_BASIC_H
#define TAVREN_BASIC_H

#include <stdint.h>
#include <time.h>

#include "tavren_api.h"
#include "tavren_constants.h"

TAVREN_BEGIN_C

/*
 * Reads a number in the C library's syntax with automatic base: decimal, 0x hexadecimal, leading-zero octal, white
 * space around it allowed. A number outside the range of a 32-bit int is clamped to it, without an error. Returns 0
 * with the number in *value, or -1, *value untouched, when there is no digit or anything else follows.
 */
TAVREN_EXPORT int tavren_cstring_to_int(const char* s, int* value);

/*
 * Splits s at every byte equal to the low 8 bits of separator; empty fields count. *fields receives one allocation
 * that holds the pointers and the texts, released by the caller with one free, or NULL for an empty s. s is not
 * changed. Returns the number of fields, 0 for an empty s; 0 with NULL when memory ran out and the malloc handler
 * returned.
 */
TAVREN_EXPORT int tavren_split_fields(char* s, int separator, char*** fields);

/*
 * Reads a space limit in megabytes; "unlimited", in any letter case, is TAVREN_SPACE_UNLIMITED. Returns 0, or -1,
 * *megabytes untouched, when s is neither that word nor a number.
 */
TAVREN_EXPORT int tavren_parse_space_limit(const char* s, int* megabytes);

/* Returns "Enabled" for TAVREN_STATE_ENABLED and "Disabled" for any other value; static, translated. */
TAVREN_EXPORT const char* tavren_state_to_string(tavren_state_t state);

/* Returns "None", "OK", "Failed", or "Unknown" for a value outside the enumeration; static, translated. */
TAVREN_EXPORT const char* tavren_connection_status_to_string(tavren_connection_status_t status);

/*
 * Writes "Unlimited" for -1, otherwise the megabytes with their unit, into buffer (TAVREN_FORMAT_SIZE bytes; longer
 * text is cut). Returns the length of the whole text.
 */
TAVREN_EXPORT int tavren_format_space_limit(int mb, char* buffer);

/*
 * Writes "Not monitored" for -1, "Unknown" for -2, "Query failed" for -3, otherwise the megabytes with their unit,
 * into buffer (TAVREN_FORMAT_SIZE bytes; longer text is cut). Returns the length of the whole text.
 */
TAVREN_EXPORT int tavren_format_space_used(int mb, char* buffer);

/*
 * Writes t, in seconds since the epoch, as local time (2026/01/31 23:59:59) into buffer (TAVREN_FORMAT_SIZE bytes);
 * "None", translated, for a t that is not positive. Returns the number of characters written.
 */
TAVREN_EXPORT int tavren_format_time(time_t t, char* buffer);

/*
 * Writes t, in seconds since the epoch, as UTC (2026-01-31T23:59:59, without a zone) into buffer (TAVREN_FORMAT_SIZE
 * bytes); "None", translated, for a t that is not positive. Returns the number of characters written.
 */
TAVREN_EXPORT int tavren_format_iso_time(time_t t, char* buffer);

/* Returns the whole seconds of the monotonic clock; a failing clock is a failed assertion. */
TAVREN_EXPORT int tavren_get_uptime(void);

/* Returns the milliseconds of the monotonic clock; a failing clock is a failed assertion. */
TAVREN_EXPORT int64_t tavren_get_uptime_ms(void);

/*
 * Creates or overwrites the file path with text, nothing added. Returns 0, or -1 with errno set when it cannot be
 * opened, written or closed; what was written stays.
 */
TAVREN_EXPORT int tavren_create_text_file(const char* path, const char* text);

/*
 * Reads the first line of the file path, at most size - 1 bytes of it, without its newline, into buffer. Returns 0,
 * or -1 when the file cannot be opened, read or closed, or is empty.
 */
TAVREN_EXPORT int tavren_read_line_from_file(const char* path, char* buffer, int size);

/*
 * Unlinks every entry of directory whose name does not begin with a point; subdirectories are not entered and every
 * failure is ignored. Returns nothing.
 */
TAVREN_EXPORT void tavren_delete_all_files(const char* directory);

/*
 * Returns the directory below which temporary files are made: "/tmp", or "tavren_tmp" under the environment variable
 * TAVREN_HOME, which is created (mode 0755) when it is missing. The first call decides for the life of the process,
 * so make it before threads exist. The text belongs to the library; no errors.
 */
TAVREN_EXPORT const char* tavren_get_tmp_root(void);

/*
 * Which machine this is, from the platform's configuration database. Each answer is read once and kept for the life of
 * the process; a failure is not kept. A record shorter than the platform's type is a failed assertion.
 */

/*
 * Returns 0 and in *id the chassis identifier, at most 16 characters that belong to the library, "none" when the
 * chassis has no name. Returns the platform's error number, *id untouched, when the step named in *failed_call failed.
 */
TAVREN_EXPORT int tavren_get_chassis_id(const char** id, const char** failed_call);

/*
 * Returns 0 and in *number the number of this service processor, or the platform's error number, *number untouched,
 * when the step named in *failed_call failed.
 */
TAVREN_EXPORT int tavren_get_sp_number(int* number, const char** failed_call);

/* Returns how many regular domains the platform can hold, 24 when the database cannot be read. */
TAVREN_EXPORT int tavren_get_max_regular_domains(void);

/* Returns how many CPU and memory units the platform can hold, 16 when the database cannot be read. */
TAVREN_EXPORT int tavren_get_max_cmus(void);

TAVREN_END_C

#endif
