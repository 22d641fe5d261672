#include "ask.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "guarded_calls.h"
#include "terminal.h"
#include "text.h"

void report(const char* what, char* message, const char* advice) {
  fprintf(stderr, translate("%s: %s failed:\n%s"), tavren_get_program_name(), what,
          message != NULL ? message : translate("  - out of memory\n"));
  free(message);
  if (advice != NULL) {
    fprintf(stderr, "%s\n", advice);
  }
}

bool parse_descriptor(const char* text, int* fd) {
  if (tavren_cstring_to_int(text, fd) == 0 && *fd >= 0) {
    return true;
  }
  fprintf(stderr, translate("%s: not a descriptor: %s\n"), tavren_get_program_name(), text);
  return false;
}

/* An interrupted prompt must not leave a terminal behind that shows nothing. */
static bool ask_for_password(char* password) {
  const char* question = translate("Password: ");
  const bool terminal = guard_terminal(question);
  const int length = tavren_read_input(question, password, PASSWORD_SIZE, 1);
  if (terminal) {
    release_terminal();
  }
  return length < PASSWORD_SIZE && !(length == 0 && feof(stdin));
}

static bool read_password_from(int fd, char* password) {
  size_t length = 0;
  for (;;) {
    char c;
    const ssize_t n = read(fd, &c, 1);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n < 0 || (n == 0 && length == 0)) {
      return false;
    }
    if (n == 0 || c == '\n') {
      break;
    }
    if (length == PASSWORD_SIZE - 1) {
      return false;
    }
    password[length++] = c;
  }
  password[length] = '\0';
  return true;
}

/* Reads "type key comment" and cuts the comment off. Returns false after a message. */
static bool read_host_key(const char* path, char* key) {
  char* encoded = tavren_read_line_from_file(path, key, KNOWN_KEY_SIZE) == 0 ? strchr(key, ' ') : NULL;
  if (encoded != NULL) {
    encoded[1 + strcspn(encoded + 1, " \t")] = '\0';
  }
  if (encoded != NULL && encoded[1] != '\0') {
    return true;
  }
  fprintf(stderr, translate("%s: %s: cannot read a host key\n"), tavren_get_program_name(), path);
  return false;
}

/* Returns whether the key that the host shows is confirmed. */
static bool confirm_host_key(const char* host, bool confirm, const char* expected, const char* key,
                             const char* fingerprint) {
  printf(translate("%s shows a key of type %.*s with the fingerprint\n  %s\n"), host, (int)strcspn(key, " "), key,
         fingerprint);
  if (strcmp(expected, key) == 0) {
    puts(translate("That is the key that is configured for this host."));
    return true;
  }
  if (*expected != '\0') {
    puts(translate(
        "That is NOT the key that is configured for this host. Unless the host has a new one, somebody stands "
        "between."));
    if (confirm) {
      fputs(
          translate("Ask the host's administrator for the fingerprint. If the key is a new one, run this again without "
                    "--yes.\n"),
          stderr);
      return false;
    }
  }
  return tavren_yes_or_no(translate("Is this the host's key (yes/no)? "), confirm, 0) == 1;
}

/* Fetches the host's key. Returns false after a message. */
static bool fetch_key(const char* host, char* key) {
  char* message = NULL;
  const char* advice = NULL;
  if (fetch_host_key(host, key, &message, &advice) == 0) {
    return true;
  }
  report(translate("fetching the host's key"), message, advice);
  return false;
}

bool choose_host_key(const char* known_key_file, bool confirm, const char* host, const char* expected, char* key,
                     char* fingerprint) {
  char reason[TAVREN_MESSAGE_SIZE];
  if (known_key_file == NULL ? !fetch_key(host, key) : !read_host_key(known_key_file, key)) {
    return false;
  }
  if (tavren_host_key_fingerprint(key, fingerprint, reason) != 0) {
    fprintf(stderr, "%s: %s\n", tavren_get_program_name(), reason);
    return false;
  }
  if (known_key_file != NULL || confirm_host_key(host, confirm, expected, key, fingerprint)) {
    return true;
  }
  fprintf(stderr, translate("%s: the host's key was not confirmed\n"), tavren_get_program_name());
  return false;
}

bool get_password(int fd, char* password) {
  /* The standard input's buffer may hold the password already, behind the answer about the key. */
  const bool from_stdin = fd == -1 || fd == STDIN_FILENO;
  const bool done = from_stdin ? ask_for_password(password) : read_password_from(fd, password);
  if (!done) {
    fprintf(stderr, translate("%s: cannot read the password\n"), tavren_get_program_name());
  }
  return done;
}

bool test_host(const tavren_settings_t* settings) {
  char* message = NULL;
  const char* advice = NULL;
  if (test_and_claim(settings, &message, &advice) == 0) {
    printf(translate("%s:%s is tested and claimed for this chassis\n"), settings->host, settings->dir);
    return true;
  }
  report(translate("the test of the host"), message, advice);
  return false;
}
