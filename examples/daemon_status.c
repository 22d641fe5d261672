/* Asks the archiving daemon on this machine how it does. */
#include <locale.h>
#include <stdio.h>
#include <tavren.h>

/* Says why the last call failed. Returns the program's exit status. */
static int fail(const tavren_api_handle_t* daemon) {
  char message[TAVREN_API_TEXT_SIZE];
  fprintf(stderr, "daemon_status: %s\n", tavren_api_errmsg(daemon, message));
  return 1;
}

int main(void) {
  tavren_api_handle_t daemon;
  tavren_state_t state;
  tavren_status_t status;
  char when[TAVREN_FORMAT_SIZE];

  setlocale(LC_ALL, ""); /* the library speaks the language that its program has chosen */
  if (tavren_api_open(&daemon) != 0) return fail(&daemon);
  int result = 0;
  if (tavren_api_get_state(&daemon, &state) != 0 || tavren_api_get_status(&daemon, &status) != 0) {
    result = fail(&daemon);
  } else {
    tavren_format_time(status.connection_time, when);
    printf("Archiving: %s\nConnection: %s\nSince: %s\n", tavren_state_to_string(state),
           tavren_connection_status_to_string(status.connection_status), when);
  }
  tavren_api_close(&daemon);
  return result;
}
