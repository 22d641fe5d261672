/*
 * Sizes and limits that callers of the C functions share with the library, and the export mark.
 *
 * Every size is in bytes. A buffer size includes the terminating NUL, a length limit does not.
 */
#ifndef TAVREN_CONSTANTS_H
#define TAVREN_CONSTANTS_H

/* Marks what a program that links the library may use; everything else stays inside. */
#define TAVREN_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
/* Stand around declarations that both languages share. */
#define TAVREN_BEGIN_C extern "C" {
#define TAVREN_END_C }
#else
#define TAVREN_BEGIN_C
#define TAVREN_END_C
#endif

/* Buffer for the reason that a command-line routine gives for its refusal. */
#define TAVREN_MESSAGE_SIZE 128

/* Buffer for an error message, host name or directory of the client API. */
#define TAVREN_API_TEXT_SIZE 256

/* Buffer for a formatted space limit, space used or time. */
#define TAVREN_FORMAT_SIZE 32

/* Buffers for a public host key as text (type, blank, encoded key) and for its fingerprint. */
#define TAVREN_HOST_KEY_SIZE 896
#define TAVREN_FINGERPRINT_SIZE 64

/* Longest user name, host name and directory that a target user@host:directory may hold. */
#define TAVREN_MAX_USER_LENGTH 63
#define TAVREN_MAX_HOST_LENGTH 255
#define TAVREN_MAX_DIRECTORY_LENGTH 255

/* A space limit, in megabytes, that stands for no limit at all. */
#define TAVREN_SPACE_UNLIMITED (-1)

/* Values of a space-used figure that are not megabytes. */
#define TAVREN_SPACE_NOT_MONITORED (-1)
#define TAVREN_SPACE_UNKNOWN (-2)
#define TAVREN_SPACE_QUERY_FAILED (-3)

#endif
