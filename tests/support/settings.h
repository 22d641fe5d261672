#ifndef TESTS_SUPPORT_SETTINGS_H
#define TESTS_SUPPORT_SETTINGS_H

#include <string>

#include "tavren_api.h"

/* A complete settings record whose strings belong to it. */
struct Settings {
  std::string host = "archive.example";
  std::string dir = "/";
  std::string user = "archiver";
  std::string password = "a secret";
  std::string host_key;
  std::string fingerprint;

  /* The record points into this object. */
  tavren_settings_t record() {
    return {host.data(), dir.data(), user.data(), password.data(), host_key.data(), fingerprint.data()};
  }
};

#endif
