/*
 * Values of JSON.
 */
#ifndef TOOLS_JSON_H
#define TOOLS_JSON_H

#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>

/*
 * Writes bytes as a string. Bytes that are no UTF-8 become the replacement character, one for each: a reader gets valid
 * JSON from whatever a file was called.
 */
void write_json_bytes(FILE* out, const char* bytes, size_t length);

/* Writes text as a string, or null for NULL and the empty text. */
void write_json_text(FILE* out, const char* text);

/* Writes number, or null when it is not known. */
void write_json_number(FILE* out, bool known, long number);

/* Writes where logs are archived: an object, in which what is NULL or empty is null. */
void write_json_target(FILE* out, const char* user, const char* host, const char* directory);

#endif
