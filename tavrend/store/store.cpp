#include "store/store.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "store/database.h"
#include "store/schema.h"

namespace {

constexpr int most_errors = 100;

/* The directory is made when it is not there; one that is there is the administrator's. */
void make_directory(const std::string& directory) {
  if (mkdir(directory.c_str(), 0700) == 0 || errno == EEXIST) return;
  throw StoreError(directory + ": " + strerror(errno));
}

bool is_there(const std::string& file) {
  struct stat status {};
  return lstat(file.c_str(), &status) == 0 || errno != ENOENT;
}

/* Not every file system can do this with a directory, and SQLite goes on then, too. */
void make_names_permanent(const std::string& directory) {
  const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd == -1) throw StoreError(directory + ": " + strerror(errno));
  fdatasync(fd);
  close(fd);
}

/*
 * Makes the database under another name, and gives it its own when it is whole: one that is empty is a damaged one
 * then, and not what a first start has left that was killed. A power cut does not leave a log without it either.
 */
void make_database(const std::string& directory, const std::string& file) {
  /* They would be taken for the new one's. */
  for (const char* rest : {"-wal", "-journal"}) {
    if (is_there(file + rest)) throw StoreError(file + rest + ": what it belongs to is missing");
  }
  const std::string unfinished = file + ".new";
  {
    Database database(unfinished, Database::Kind::may_be_new);
    make_state(database);
    database.put_into_one_file();
  }
  if (rename(unfinished.c_str(), file.c_str()) != 0) throw StoreError(file + ": " + strerror(errno));
  make_names_permanent(directory);
}

/* Before SQLite opens it, for which one of a single byte is empty, too, and which writes into both. */
void check_that_it_is_not_empty(const std::string& file) {
  struct stat status {};
  if (stat(file.c_str(), &status) == 0 && status.st_size <= 1) throw StoreError(file + ": damaged: nothing is in it");
}

constexpr const char* setting_names[] = {"host", "dir", "user", "password", "host_key", "fingerprint"};

std::string& setting(Settings& settings, int number) {
  static constexpr std::string Settings::*all[] = {&Settings::host,     &Settings::dir,      &Settings::user,
                                                   &Settings::password, &Settings::host_key, &Settings::fingerprint};
  return settings.*all[number];
}

}  // namespace

Store::Store(const std::string& directory) {
  make_directory(directory);
  const std::string file = directory + "/tavrend.db";
  if (!is_there(file)) make_database(directory, file);
  check_that_it_is_not_empty(file);
  database = std::make_unique<Database>(file);
  prepare_state(*database, file);
}

Store::~Store() = default;

int64_t Store::number(const char* name) {
  auto query = database->query("SELECT value FROM number WHERE name = ?");
  query.bind(std::string_view(name));
  return query.next() ? query.number(0) : 0;
}

void Store::set_number(const char* name, int64_t value) {
  database->query("INSERT OR REPLACE INTO number VALUES (?, ?, ?)")
      .bind(std::string_view(name))
      .bind(value)
      .bind_sum()
      .run();
}

std::optional<ArchiveConfig> Store::config() {
  if (number("configured") == 0) return std::nullopt;
  ArchiveConfig config;
  for (int i = 0; i < 6; ++i) setting(config.settings, i) = text(std::string("config.") + setting_names[i]);
  config.space_limit[0] = static_cast<int32_t>(number("space_limit.0"));
  config.space_limit[1] = static_cast<int32_t>(number("space_limit.1"));
  return config;
}

bool Store::is_enabled() { return number("enabled") != 0; }

void Store::set_config_now(const ArchiveConfig& config) {
  ArchiveConfig copy = config;
  for (int i = 0; i < 6; ++i) {
    database->query("INSERT OR REPLACE INTO text VALUES (?, ?, ?)")
        .bind(std::string("config.") + setting_names[i])
        .bind(setting(copy.settings, i))
        .bind_sum()
        .run();
  }
  set_number("space_limit.0", config.space_limit[0]);
  set_number("space_limit.1", config.space_limit[1]);
  set_number("configured", 1);
  set_number("claimed", 0);
}

void Store::set_config(const std::optional<ArchiveConfig>& config, bool enabled) {
  database->transaction([&] {
    if (config) set_config_now(*config);
    set_number("enabled", enabled ? 1 : 0);
  });
}

bool Store::is_claimed() { return number("claimed") != 0; }

void Store::set_claimed() {
  database->transaction([this] { set_number("claimed", 1); });
}

std::string Store::text(const std::string& kind) {
  auto query = database->query("SELECT value FROM text WHERE name = ?");
  query.bind(kind);
  return query.next() ? query.text(0) : "";
}

void Store::set_text(const std::string& kind, const std::string& text) {
  database->transaction(
      [&] { database->query("INSERT OR REPLACE INTO text VALUES (?, ?, ?)").bind(kind).bind(text).bind_sum().run(); });
}

std::vector<std::string> Store::errors() {
  std::vector<std::string> errors;
  for (auto query = database->query("SELECT serialised FROM error ORDER BY id"); query.next();) {
    errors.push_back(query.text(0));
  }
  return errors;
}

void Store::add_error(const std::string& serialised) {
  database->transaction([&] {
    database->query("INSERT INTO error (serialised) VALUES (?)").bind(serialised).run();
    database->query("DELETE FROM error WHERE id <= (SELECT MAX(id) FROM error) - ?")
        .bind(static_cast<int64_t>(most_errors))
        .run();
  });
}

void Store::clear_errors() {
  database->transaction([this] { database->query("DELETE FROM error").run(); });
}

std::vector<ArchivedSection> Store::sections() {
  std::vector<ArchivedSection> sections;
  for (auto query = database->query("SELECT name, compartment FROM section ORDER BY name"); query.next();) {
    sections.push_back({query.text(0), static_cast<int>(query.number(1))});
  }
  return sections;
}

void Store::add_section(const ArchivedSection& section) {
  /* Nothing is written when it is no news: a full disk does not keep the daemon from its start. */
  const auto known = sections();
  const auto is_it = [&section](const ArchivedSection& other) {
    return other.name == section.name && other.compartment == section.compartment;
  };
  if (std::any_of(known.begin(), known.end(), is_it)) return;
  database->transaction([&] {
    database
        ->query(
            "INSERT INTO section VALUES (?, ?, ?, ?)"
            " ON CONFLICT (name) DO UPDATE SET compartment = excluded.compartment, sum = excluded.sum")
        .bind(section.name)
        .bind(static_cast<int64_t>(section.compartment))
        .bind(last_item_time(section.name))
        .bind_sum()
        .run();
  });
}

int64_t Store::last_item_time(const std::string& section) {
  auto query = database->query("SELECT last_item_ms FROM section WHERE name = ?");
  query.bind(section);
  return query.next() ? query.number(0) : 0;
}
