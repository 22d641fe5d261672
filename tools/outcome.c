#include "outcome.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "text.h"

int end_call(const tavren_api_handle_t* daemon, int result) {
  char message[TAVREN_API_TEXT_SIZE];
  if (result == 0) {
    return EXIT_DONE;
  }
  fprintf(stderr, "tavren_ctl: %s\n", tavren_api_errmsg(daemon, message));
  if (result == TAVREN_API_E_RPC && geteuid() != 0) {
    fputs(translate("You are not root: others may ask for state, status, host, directory and sleeping alone.\n"),
          stderr);
  }
  return EXIT_NO_DAEMON_OR_USAGE;
}

int end_request(const tavren_api_handle_t* daemon, int result, char* refusal) {
  if (result != 0 || refusal == NULL) {
    return end_call(daemon, result);
  }
  fprintf(stderr, "tavren_ctl: %s\n", refusal);
  free(refusal);
  return EXIT_REFUSED;
}

int end_text(const tavren_api_handle_t* daemon, int result, char* text, const char* if_none) {
  if (result == 0) {
    fputs(text != NULL ? text : if_none, stdout);
    free(text);
  }
  return end_call(daemon, result);
}

int end_without_memory(void) {
  fprintf(stderr, "tavren_ctl: %s\n", translate("out of memory"));
  return EXIT_REFUSED;
}
