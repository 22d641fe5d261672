#ifndef TAVREND_PLAN_SEEN_FILES_H
#define TAVREND_PLAN_SEEN_FILES_H

#include <vector>

#include "plan/closed_files.h"
#include "plan/log_file.h"

/* What has changed of the files that are waiting, from one look to the next. */
struct SeenChanges {
  std::vector<Identity> outdated;       /* they are there, and do not wait any more, or as something else */
  std::vector<const ClosedFile*> fresh; /* of those that wait: they were not seen before as they are now */
};

/*
 * Files that looks before have found waiting, while a new look goes on. There may be tens of thousands: of each it is
 * known only by what it would be found again.
 */
class SeenFiles {
 public:
  explicit SeenFiles(const std::vector<ArchivedFile>& before);

  /* Takes a file that is there, whether it waits or not, and as often as it is seen. */
  void see(const LogFile& file);

  /* Returns what is to be noted when these wait after the look. Of an empty file nothing can be lost. */
  SeenChanges changes(const std::vector<ClosedFile>& waiting) const;

  /* Returns those that were none of the files of the look. */
  std::vector<ArchivedFile> missing() const;

 private:
  struct Seen {
    ArchivedFile file;
    bool is_there = false;
  };
  std::vector<Seen> seen; /* by inode */
};

#endif
