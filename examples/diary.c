#include <stdio.h>
#include <stdlib.h>
#include <tavren.h>

int main(void) {
  char message[TAVREN_MESSAGE_SIZE];
  char* error = NULL;
  char text[] = "Nothing happened today.\n";
  tavren_settings_t settings = {"archive.example", "/var/archive", "logger", "secret", "", ""};

  tavren_set_program_name("diary");
  if (tavren_setup_tmp_dir("diary", message) != 0) return fputs(message, stderr), 1;
  tavren_hp_t* session = tavren_hp_new(&settings, &error);
  if (session == NULL || tavren_hp_open(session, &error) != 0 ||
      tavren_hp_start_send_file(session, "today.log", sizeof text - 1, 0644, &error) != 0 ||
      tavren_hp_continue_send_file(session, text, sizeof text - 1, &error) != 0 ||
      tavren_hp_end_send_file(session, &error) != 0) {
    fputs(error != NULL ? error : "out of memory\n", stderr);
    free(error);
    tavren_cleanup_tmp_dir();
    return 1;
  }
  tavren_hp_close(session);
  tavren_hp_destroy(session);
  tavren_cleanup_tmp_dir();
  return 0;
}
