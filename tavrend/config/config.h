#ifndef TAVREND_CONFIG_CONFIG_H
#define TAVREND_CONFIG_CONFIG_H

#include <stdint.h>

#include <stdexcept>
#include <string>
#include <vector>

/* Where the configuration file is unless the command line says otherwise. */
constexpr char default_config_file[] = "/etc/tavren/tavrend.conf";

/* The indexes of the two compartments of the archive. */
constexpr int audit_compartment = 0;
constexpr int logs_compartment = 1;

constexpr int32_t default_interval = 3600; /* seconds */

/* What is archived under one name: closed files, or one file that grows. */
struct Section {
  std::string name;   /* [a-z0-9_-]{1,32} */
  std::string files;  /* a pattern of absolute paths; empty: the section follows a file */
  std::string follow; /* an absolute path; empty: the section has closed files */
  int compartment = logs_compartment;
  int32_t interval = default_interval; /* seconds */
  bool compress = false;
};

/* Why a configuration file is of no use, with file and line. */
struct ConfigError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/* Reads the sections of a configuration file, in its order. Throws ConfigError at the first thing that is wrong. */
std::vector<Section> read_config(const std::string& path);

/* Returns the name of the task that archives a section. */
std::string task_of(const Section& section);

#endif
