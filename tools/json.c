#include "json.h"

#include <string.h>

static bool continues(const unsigned char* bytes, size_t count) {
  for (size_t i = 1; i < count; ++i) {
    if ((bytes[i] & 0xC0) != 0x80) {
      return false;
    }
  }
  return true;
}

/* Returns how many of the bytes, of which so many are left, are the character they begin with; 0 when they are none. */
static size_t character_length(const unsigned char* bytes, size_t left) {
  const unsigned char first = bytes[0];
  const size_t length = first < 0x80   ? 1
                        : first < 0xC2 ? 0
                        : first < 0xE0 ? 2
                        : first < 0xF0 ? 3
                        : first < 0xF5 ? 4
                                       : 0;
  if (length == 0 || length > left || !continues(bytes, length)) {
    return 0;
  }
  /* Written longer than need be, halves of a pair, beyond the last character. */
  const bool refused = (first == 0xE0 && bytes[1] < 0xA0) || (first == 0xED && bytes[1] > 0x9F) ||
                       (first == 0xF0 && bytes[1] < 0x90) || (first == 0xF4 && bytes[1] > 0x8F);
  return refused ? 0 : length;
}

static void write_ascii(FILE* out, unsigned char c) {
  if (c == '"' || c == '\\') {
    fprintf(out, "\\%c", c);
  } else if (c == '\n') {
    fputs("\\n", out);
  } else if (c < 0x20 || c == 0x7F) {
    fprintf(out, "\\u%04x", c);
  } else {
    putc(c, out);
  }
}

void write_json_bytes(FILE* out, const char* bytes, size_t length) {
  const unsigned char* rest = (const unsigned char*)bytes;
  const unsigned char* const end = rest + length;
  putc('"', out);
  while (rest < end) {
    const size_t count = character_length(rest, (size_t)(end - rest));
    if (count == 0) {
      fputs("\\ufffd", out);
    } else if (count == 1) {
      write_ascii(out, *rest);
    } else {
      fwrite(rest, 1, count, out);
    }
    rest += count == 0 ? 1 : count;
  }
  putc('"', out);
}

void write_json_text(FILE* out, const char* text) {
  if (text == NULL || *text == '\0') {
    fputs("null", out);
  } else {
    write_json_bytes(out, text, strlen(text));
  }
}

void write_json_number(FILE* out, bool known, long number) {
  if (known) {
    fprintf(out, "%ld", number);
  } else {
    fputs("null", out);
  }
}

void write_json_target(FILE* out, const char* user, const char* host, const char* directory) {
  fputs("{\"user\": ", out);
  write_json_text(out, user);
  fputs(", \"host\": ", out);
  write_json_text(out, host);
  fputs(", \"directory\": ", out);
  write_json_text(out, directory);
  putc('}', out);
}
