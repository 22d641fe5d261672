#ifndef TAVREND_ARCHIVER_ARCHIVER_H
#define TAVREND_ARCHIVER_ARCHIVER_H

#include <random>
#include <string>
#include <vector>

#include "archiver/current_session.h"
#include "archiver/desk.h"
#include "archiver/section_work.h"

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
  bool work_once();
  void archive(const Work& work);
  void look_at(const Work& work, const Section& section);
  bool is_new(const Work& work, const Section& section);
  void measure(const Work& work);
  std::vector<Section> in_turn(const Work& work) const;
  void archive_sections(const Work& work);
  void archive_section(const SectionWork& to);
  void end_items_of_gone_sections(const Work& work);
  SectionWork part_of(const Work& work, const Section& section);

  Desk& desk;
  const std::string directory;
  std::string prefix; /* before every local path, while the present work lasts */
  CurrentSession session;
  std::string failed_section; /* in which the last session has failed, whatever it was about; empty: in none */
  std::minstd_rand random;
};

#endif
