/*
 * Has the archiving daemon archive in $LAB_ARCHIVE, and switches it on, without asking the archive host first, which
 * tavren_ctl setup does several times over. Runs where TAVREN_HOME names the daemon.
 */
#include "caller.h"

int main() {
  Caller caller;
  caller.configure();
  return 0;
}
