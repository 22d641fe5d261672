#include "tavren_test_host.h"

#include "TavrenHost.h"
#include "core/assertion.h"

int tavren_test_host(const tavren_settings_t* s, char** message) {
  TAVREN_ASSERT("tavren_test_host", s != NULL);
  *message = nullptr;
  /* Deliberately abandoned when a step throws: the error goes straight to the caller. */
  auto* host = new TavrenHost(true, false);
  host->set_settings(*s);
  host->enable();
  host->open_connection();
  host->test_host();
  host->create_chassis_file();
  delete host;
  return 0;
}
