#ifndef TAVREND_ARCHIVER_ARCHIVER_H
#define TAVREND_ARCHIVER_ARCHIVER_H

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "archiver/desk.h"
#include "archiver/session.h"
#include "plan/closed_files.h"
#include "sources/local_files.h"

/*
 * Archives what is due, session after session, until the desk says that it is over. Runs in a thread of its own.
 *
 * A session that fails is stored as an error, and all due tasks stay due; an item that fails is stored, too, and the
 * next one goes on, in a new session where that one broke.
 */
class Archiver {
 public:
  /* directory is where temporary files are made. */
  Archiver(Desk& desk, const std::string& directory);

  void run();

 private:
  using Wanted = std::function<bool(const LogFile&)>;
  struct FoundAgain {
    OpenFile open;
    LogFile now; /* under the path that it was looked for by */
  };

  struct Places {
    std::vector<std::string> paths;
    std::vector<UnreadableFile> unreadable; /* each may be one that is wanted */
  };

  bool work_once();
  void archive(const Work& work);
  void keep_first_look(const Section& section);
  void measure(const Work& work);
  void archive_section(const Work& work, const Section& section);
  void archive_closed_files(const Work& work, const Section& section);
  using Begun = std::deque<Intent>;
  Begun begin_together(const Work& work, const Section& section, const ClosedFile* first, const ClosedFile* last);
  bool archive_begun(const Work& work, const Section& section, const ClosedFile& file, Begun& begun);
  void archive_growing_file(const Work& work, const Section& section);
  bool archive_late_ends(const Work& work, const Section& section, const std::vector<LogFile>& beside);
  std::optional<int64_t> archive_pieces(const Work& work, const Section& section, const Stretch& stretch);
  bool archive_stretch(const Work& work, const Section& section, const Stretch& stretch);
  bool resume(const Work& work, const Section& section);
  bool resume_item(const Work& work, const Section& section, const Intent& intent);
  std::vector<ClosedFile> waiting_files(const Section& section);
  Places places_of(const Section& section, const Wanted& is_wanted);
  std::optional<FoundAgain> find_again(const Section& section, const std::string& path, const Wanted& is_it);
  bool only_waits(const Section& section, const std::string& path, const Identity& identity);
  bool archive_range(const Work& work, const Section& section, const OpenFile& file, Intent intent);
  bool try_item(const Work& work, const Section& section, const OpenFile& file, Intent intent, bool is_new);
  std::optional<Progress> known_progress(Store& store, const Section& section) const;
  void remove_item(const Work& work, const std::string& remote_path);
  void take_back_item(const Work& work, const Section& section, const Intent& intent);
  void send_item(const Work& work, const Section& section, const OpenFile& file, Intent& intent, bool is_new);
  Progress begin_look(const Section& section, const Surroundings& around);
  void give_up_lost(const Section& section, const Progress& progress, const Stretch& stretch);
  Session& session(const Work& work);

  Desk& desk;
  const std::string directory;
  std::string prefix; /* before every local path, while the present work lasts */
  std::unique_ptr<Session> open_session;
  std::minstd_rand random;
};

#endif
