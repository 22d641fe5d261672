#ifndef TAVREND_ARCHIVER_SECTION_WORK_H
#define TAVREND_ARCHIVER_SECTION_WORK_H

#include <string>

#include "archiver/current_session.h"
#include "archiver/desk.h"

/* What a look does with files that cannot be read: one that comes before their turn leaves the report to that. */
enum class Unreadable { are_reported, wait_for_their_turn };

/* A section's part of a work, and what it is done with. */
struct SectionWork {
  Desk& desk;
  CurrentSession& session;
  const Work& work;
  const Section& section;
  const std::string& prefix;    /* before every local path, while the work lasts */
  const std::string& directory; /* where temporary files are made */
};

#endif
