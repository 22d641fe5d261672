#ifndef TESTS_DAEMON_SETTINGS_STRINGS_H
#define TESTS_DAEMON_SETTINGS_STRINGS_H

#include <array>

#include "tavren_api.h"

using String = char* tavren_settings_t::*;

/* The six strings in their order in memory and on the wire. */
constexpr std::array<String, 6> settings_strings = {&tavren_settings_t::host,     &tavren_settings_t::dir,
                                                    &tavren_settings_t::user,     &tavren_settings_t::password,
                                                    &tavren_settings_t::host_key, &tavren_settings_t::fingerprint};

#endif
