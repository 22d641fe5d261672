#include "errors.h"

#include <regex.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "json.h"
#include "outcome.h"
#include "text.h"

int show_errors(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  char* errors = NULL;
  const int result = tavren_api_get_errors(daemon, &errors);
  return end_text(daemon, result, errors, translate("No errors\n"));
}

/* What stands in a line of the text that the client interface makes of the errors. */
enum kind { TIME, MESSAGE, MORE_OF_A_MESSAGE };

static const char message_mark[] = "  - ";

static enum kind kind_of(const regex_t* time, const char* line, size_t length) {
  if (strncmp(line, message_mark, strlen(message_mark)) == 0) {
    return MESSAGE;
  }
  regmatch_t part = {.rm_so = 0, .rm_eo = (regoff_t)length};
  return regexec(time, line, 1, &part, REG_STARTEND) == 0 ? TIME : MORE_OF_A_MESSAGE;
}

/* Where in the array the writer is. */
struct position {
  bool in_error;
  bool behind_a_message;
};

static void end_error(const struct position* position) {
  if (position->in_error) {
    fputs("]}", stdout);
  }
}

static void begin_error(struct position* position, const char* time, size_t length) {
  end_error(position);
  printf("%s\n  {\"time\": ", position->in_error ? "," : "");
  if (time == NULL) {
    fputs("null", stdout);
  } else {
    write_json_bytes(stdout, time, length);
  }
  fputs(", \"messages\": [", stdout);
  position->in_error = true;
  position->behind_a_message = false;
}

static void write_message(struct position* position, const char* message, size_t length) {
  if (!position->in_error) {
    begin_error(position, NULL, 0);
  }
  if (position->behind_a_message) {
    fputs(", ", stdout);
  }
  write_json_bytes(stdout, message, length);
  position->behind_a_message = true;
}

/* Returns the end of the line, without its newline. */
static const char* end_of(const char* line) { return line + strcspn(line, "\n"); }

/* Returns the end of the message that begins there: names of files may have newlines. */
static const char* end_of_message(const regex_t* time, const char* message) {
  const char* end = end_of(message);
  while (*end != '\0' && end[1] != '\0' &&
         kind_of(time, end + 1, (size_t)(end_of(end + 1) - end - 1)) == MORE_OF_A_MESSAGE) {
    end = end_of(end + 1);
  }
  return end;
}

static void write_errors(const regex_t* time, const char* text) {
  struct position position = {false, false};
  putchar('[');
  for (const char* line = text; *line != '\0';) {
    const char* end = end_of(line);
    const enum kind kind = kind_of(time, line, (size_t)(end - line));
    if (kind == TIME) {
      begin_error(&position, line, (size_t)(end - line));
    } else {
      const char* message = kind == MESSAGE ? line + strlen(message_mark) : line;
      end = end_of_message(time, message);
      write_message(&position, message, (size_t)(end - message));
    }
    line = *end == '\n' ? end + 1 : end;
  }
  end_error(&position);
  puts(position.in_error ? "\n]" : "]");
}

int show_errors_as_json(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  char* errors = NULL;
  regex_t time;
  const int result = tavren_api_get_errors(daemon, &errors);
  if (result != 0) {
    return end_call(daemon, result);
  }
  if (regcomp(&time, "^-?[0-9]{1,8}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}$", REG_EXTENDED | REG_NOSUB) != 0) {
    free(errors);
    return end_without_memory();
  }
  write_errors(&time, errors != NULL ? errors : "");
  regfree(&time);
  free(errors);
  return EXIT_DONE;
}
