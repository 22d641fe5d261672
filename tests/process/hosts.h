#ifndef TESTS_PROCESS_HOSTS_H
#define TESTS_PROCESS_HOSTS_H

#include "support/named.h"

/* A host program with ways of its own about its children: what it does at its start. */
struct Host {
  void (*begin)();
};

/* Hosts that leave the library no child to wait for. Each needs a process of its own. */
extern const Named<Host> hosts_that_reap[3];

#endif
