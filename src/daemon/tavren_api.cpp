#include "tavren_api.h"

#include <stdlib.h>
#include <string.h>

#include "core/assertion.h"
#include "tavren_cmem.h"

namespace {

bool are_equal(const char* a, const char* b) {
  if (a == b) return true;
  return a != nullptr && b != nullptr && strcmp(a, b) == 0;
}

}  // namespace

void tavren_settings_copy(const tavren_settings_t* src, tavren_settings_t* dest) {
  TAVREN_ASSERT("tavren_api", src->host != NULL && src->dir != NULL && src->user != NULL && src->password != NULL &&
                                  src->host_key != NULL && src->fingerprint != NULL);
  *dest = tavren_settings_t{};
  dest->host = tavren_strdup(src->host);
  dest->dir = tavren_strdup(src->dir);
  dest->user = tavren_strdup(src->user);
  dest->password = tavren_strdup(src->password);
  dest->host_key = tavren_strdup(src->host_key);
  dest->fingerprint = tavren_strdup(src->fingerprint);
}

void tavren_settings_free_contents(tavren_settings_t* settings) {
  free(settings->host);
  free(settings->dir);
  free(settings->user);
  if (settings->password != nullptr) explicit_bzero(settings->password, strlen(settings->password));
  free(settings->password);
  free(settings->host_key);
  free(settings->fingerprint);
  *settings = tavren_settings_t{};
}

int tavren_settings_are_equal(const tavren_settings_t* a, const tavren_settings_t* b) {
  /* The fingerprint follows from the host key, so it is not compared. */
  const bool equal = are_equal(a->host, b->host) && are_equal(a->dir, b->dir) && are_equal(a->user, b->user) &&
                     are_equal(a->password, b->password) && are_equal(a->host_key, b->host_key);
  return equal ? 1 : 0;
}

void tavren_config_copy(const tavren_config_t* src, tavren_config_t* dest) {
  tavren_settings_copy(&src->settings, &dest->settings);
  for (int i = 0; i < TAVREN_COMPARTMENTS; ++i) dest->space_limit[i] = src->space_limit[i];
}

void tavren_config_free_contents(tavren_config_t* config) { tavren_settings_free_contents(&config->settings); }
