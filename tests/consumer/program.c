/* A program in C11 that somebody else might write: says which version it was built with, and takes a target apart. */
#include <stdio.h>
#include <tavren.h>

#if TAVREN_VERSION < 10000 || TAVREN_VERSION >= 20000
#error "written for version 1"
#endif

int main(void) {
  char spec[] = "logger@archive.example:/var/archive/";
  char message[TAVREN_MESSAGE_SIZE];
  char *user = NULL, *host = NULL, *directory = NULL;
  if (tavren_process_target(spec, &user, &host, &directory, message) != 0) {
    fprintf(stderr, "%s\n", message);
    return 1;
  }
  return printf("%s: %s, %s, %s\n", TAVREN_VERSION_TEXT, user, host, directory) < 0;
}
