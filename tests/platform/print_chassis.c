/*
 * Prints the chassis identifier: what a program sees of the platform below it.
 */
#include <stdio.h>
#include <tavren.h>

int main(void) {
  const char* id = NULL;
  const char* failed_call = NULL;
  const int result = tavren_get_chassis_id(&id, &failed_call);
  if (result != 0) {
    fprintf(stderr, "%s: error %d\n", failed_call, result);
    return 1;
  }
  puts(id);
  return 0;
}
