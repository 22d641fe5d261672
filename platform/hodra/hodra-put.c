/*
 * hodra-put: writes a record of the bundled configuration database, for developers.
 */
#include <errno.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "hodra.h"
#include "hodrahelper.h"

static const char usage[] =
    "Usage: hodra-put DATABASE RECORD LENGTH [OFFSET=TEXT | OFFSET:byte=N | OFFSET:int=N]...\n"
    "Writes a record of LENGTH bytes, zero but for the fields given: a text, a byte,\n"
    "a 32-bit integer in this machine's byte order. For instance, which chassis this is:\n"
    "\n"
    "  hodra-put 1 setup_system_id_info 1024 40=CHASSIS-7\n"
    "\n"
    "The database is kept in the directory $HODRA_DIR, /var/lib/hodra without it.\n";

/* Reads the number at *text, in decimal or with a base as in C, and moves *text behind it. */
static bool parse_number(const char** text, long long lowest, long long highest, long long* number) {
  char* end;
  errno = 0;
  *number = strtoll(*text, &end, 0);
  const bool good = end != *text && errno == 0 && *number >= lowest && *number <= highest;
  *text = end;
  return good;
}

static bool parse_whole_number(const char* text, long long lowest, long long highest, long long* number) {
  return parse_number(&text, lowest, highest, number) && *text == '\0';
}

static bool store(char* record, size_t length, size_t offset, const void* data, size_t size) {
  if (offset > length || size > length - offset) {
    return false;
  }
  memcpy(record + offset, data, size);
  return true;
}

/* Puts the field that text describes into record. */
static bool store_field(char* record, size_t length, const char* text) {
  long long offset;
  long long number;
  if (!parse_number(&text, 0, (long long)length, &offset)) {
    return false;
  }
  if (text[0] == '=') {
    return store(record, length, (size_t)offset, text + 1, strlen(text + 1));
  }
  if (strncmp(text, ":byte=", 6) == 0 && parse_whole_number(text + 6, 0, UINT8_MAX, &number)) {
    const uint8_t byte = (uint8_t)number;
    return store(record, length, (size_t)offset, &byte, sizeof byte);
  }
  if (strncmp(text, ":int=", 5) == 0 && parse_whole_number(text + 5, INT32_MIN, INT32_MAX, &number)) {
    const int32_t integer = (int32_t)number;
    return store(record, length, (size_t)offset, &integer, sizeof integer);
  }
  return false;
}

/* Writes the record while nobody else reads the database. Returns 0 or an error number. */
static int put(int database, const char* name, const char* record, size_t length) {
  int error = hodrahelper_make(database);
  if (error == 0) {
    error = open_conf_db(database);
  }
  if (error != 0) {
    return error;
  }
  error = hodra_lock(database);
  if (error == 0) {
    error = hodrahelper_put(database, name, record, length);
    hodra_unlock(database);
  }
  close_conf_db(database);
  return error;
}

int main(int argc, char** argv) {
  long long database;
  long long length;
  if (argc < 4 || !parse_whole_number(argv[1], 0, HODRA_DATABASES - 1, &database) ||
      !parse_whole_number(argv[3], 0, 1 << 20, &length)) {
    fputs(usage, stderr);
    return 2;
  }
  char* record = calloc(1, length > 0 ? (size_t)length : 1);
  if (record == NULL) {
    fputs("hodra-put: out of memory\n", stderr);
    return 1;
  }
  int status = 0;
  for (int i = 4; i < argc && status == 0; ++i) {
    if (!store_field(record, (size_t)length, argv[i])) {
      fprintf(stderr, "hodra-put: no field of this record: %s\n", argv[i]);
      status = 2;
    }
  }
  if (status == 0) {
    const int error = put((int)database, argv[2], record, (size_t)length);
    if (error != 0) {
      fprintf(stderr, "hodra-put: %s: %s\n", argv[2], strerror(error));
      status = 1;
    }
  }
  free(record);
  return status;
}
