#include "host/handle_c_tunables.h"

#include <stdlib.h>

#include <string>

#include "TavrenTunables.h"

void set_tunable(const char* name, const char* value) {
  std::string refusal;
  TavrenTunables::instance().set_tunable(name, value, refusal);
  if (!refusal.empty()) abort();
}
