#ifndef TAVREND_STORE_STORE_H
#define TAVREND_STORE_STORE_H

#include <stdint.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "plan/closed_files.h"
#include "plan/growing_file.h"
#include "plan/seen_files.h"
#include "store/store_error.h"

class Database;

/* What the administrator has configured. */
struct Settings {
  std::string host, dir, user, password, host_key, fingerprint;
};
struct ArchiveConfig {
  Settings settings;
  int32_t space_limit[2] = {-1, -1}; /* MB; -1: none */
};

/* An item that is on its way: what is sent again after a crash, under the same name. */
struct Intent {
  std::string section;
  std::string remote_path; /* in the archive directory */
  LogFile file;            /* its path and identity; size and mtime_ns as they were when it was planned */
  bool follows = false;    /* a piece of a growing file */
  bool grows = false;      /* and more of that file may follow */
  int64_t first = 0;       /* bytes from the file's beginning */
  int64_t length = 0;
  std::string log{};       /* of a piece: the log's path, log_dir_prefix before it */
  bool compressed = false; /* the form that the item has under its name */
  int64_t announced = -1;  /* bytes that only all of it has on the far side; -1: also less of it may have them */
};

/* A directory of the archive and the compartment whose space it takes. */
struct ArchivedSection {
  std::string name;
  int compartment = 0;
};

/*
 * What outlives the daemon: configuration, state, tunables, commands, intervals, stored errors, and what was archived.
 *
 * One SQLite database in a directory of its own (0700, the file 0600). Each function that changes something is one
 * transaction, on the disk when it returns, but for the one that says otherwise. Used by one thread at a time. Throws
 * StoreError when the database cannot be opened, is damaged or of a newer version, or cannot be written: a change that
 * throws has not taken place.
 */
class Store {
 public:
  explicit Store(const std::string& directory);
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  /* The administrator's part. */
  std::optional<ArchiveConfig> config();
  bool is_enabled();
  /* Sets both in one; a config that is not there keeps the old one. */
  void set_config(const std::optional<ArchiveConfig>& config, bool enabled);

  /* Whether the archive directory was claimed with the present configuration. */
  bool is_claimed();
  void set_claimed();

  /* Texts that are kept by name: kind is "tunables", "commands", or "interval." and a task. */
  std::string text(const std::string& kind);
  void set_text(const std::string& kind, const std::string& text);

  /* Stored errors, serialised, oldest first; of more than a hundred the oldest go. */
  std::vector<std::string> errors();
  void add_error(const std::string& serialised);
  void clear_errors();

  /* What was archived; with the files that were only passed over; and all of these by their identity alone. */
  std::vector<ArchivedFile> archived_files(const std::string& section);
  std::vector<ArchivedFile> noted_files(const std::string& section);
  std::vector<Identity> known_files(const std::string& section);
  /*
   * Forgets those archived files of a section that are there no more, under whatever name. A file that is renamed while
   * a directory is read may be missing in one look, so that only what was missing for a week, and whenever it was
   * looked for, is forgotten. A look that has found nothing on its device counts for nothing: it may be the file system
   * that is missing.
   */
  void forget_missing_files(const std::string& section, const ClosedFiles& look, int64_t now_ms);
  /*
   * Returns up to where a closed file is archived of which only some parts are, 0 where none is. It is forgotten
   * together with what was seen of the file.
   */
  int64_t begun_at(const std::string& section, const ArchivedFile& file);
  /* Each log has its own; that of an old state may have no name. */
  std::optional<Progress> progress(const std::string& section, const std::string& log = "");
  bool has_followed(const std::string& section);
  /*
   * Notes what a look at a followed log has shown: how far it is archived, and files that are known from now on, as
   * archived ones or as others.
   */
  enum class Known { archived, passed_over };
  void note_look(const std::string& section, const std::optional<Progress>& now, const std::vector<LogFile>& known,
                 Known as);
  /*
   * Notes that file is none of those that were archived, although it is at the inode of one and begins like it: that
   * one is gone. It stays known by all else, for as long as one that is missing.
   */
  void note_new_file(const std::string& section, const LogFile& file);

  /*
   * What looks have found, and is not archived yet: it has been seen, so that it cannot be lost in silence. What is
   * archived is none of these any more, and neither is the file that a log's progress speaks of. log is the path that
   * is followed, or the pattern; of another one of the section nothing is kept.
   */
  std::vector<ArchivedFile> seen_files(const std::string& section, const std::string& log);
  std::string path_of_seen(const std::string& section, const Identity& identity);
  /* On the disk with the next change: a power cut may take back what was seen a moment before. */
  void note_seen(const std::string& section, const std::string& log, const std::optional<Progress>& now,
                 const SeenChanges& changes);
  void forget_seen(const std::string& section, const Identity& identity);

  /* Sections that were configured at any time, with their directories in the archive. */
  std::vector<ArchivedSection> sections();
  void add_section(const ArchivedSection& section);

  /* The time of a section's last item, in milliseconds since the epoch; 0: none yet. */
  int64_t last_item_time(const std::string& section);

  /*
   * An item's life: it is stored before it is sent, and done after the far side's last answer, or given up. Of a
   * section's open intents the one with the smallest name comes first.
   */
  std::vector<Intent> open_intents(const std::string& section);
  void begin_item(const Intent& intent, int64_t item_time_ms);
  /* Several items of one section, the last of them with that time. */
  void begin_items(const std::vector<Intent>& intents, int64_t item_time_ms);
  void finish_item(const Intent& intent);
  /*
   * The same, but it is on the disk together with the next change, or after sync. A power cut before that makes the
   * item one that is on its way again: it is sent once more under its name.
   */
  void finish_item_on_disk_later(const Intent& intent);
  void sync();
  void give_up_item(const Intent& intent);

 private:
  void set_config_now(const ArchiveConfig& config);
  void set_number(const char* name, int64_t value);
  int64_t number(const char* name);
  void write_intent(const Intent& intent);
  void write_last_item_time(const std::string& section, int64_t item_time_ms);
  void write_progress(const std::string& section, const Progress& progress);
  void write_begun(const Intent& intent);
  void forget_begun(const std::string& section, const Identity& identity);
  std::optional<Progress> old_progress(const std::string& section, const ArchivedFile& file);
  void forget_old_progress(const std::string& section, const ArchivedFile& file);
  void remember_file(const std::string& section, const LogFile& file, Known as);
  void write_archived(const std::string& section, const ArchivedFile& file, Known as);
  void write_seen(const std::string& section, const std::string& log, const ClosedFile& file);
  std::vector<ArchivedFile> files_of(const char* sql, const std::string& section);
  void forget_seen_now(const std::string& section, const Identity& identity);
  std::vector<ArchivedFile> seen_of(const std::string& section, const LogFile& file);
  std::vector<std::pair<ArchivedFile, Known>> known_as(const std::string& section, const LogFile& file);
  void forget_file(const std::string& section, const Identity& identity);
  void end_intent(const Intent& intent);
  bool note_late_end(const Intent& intent);
  bool note_piece(const Intent& intent, const std::vector<ArchivedFile>& seen);
  void forget_what_has_arrived(const Intent& intent, const std::vector<ArchivedFile>& seen);
  bool note_part(const Intent& intent);
  void note_finished(const Intent& intent);

  std::unique_ptr<Database> database;
};

#endif
