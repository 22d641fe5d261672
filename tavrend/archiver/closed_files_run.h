#ifndef TAVREND_ARCHIVER_CLOSED_FILES_RUN_H
#define TAVREND_ARCHIVER_CLOSED_FILES_RUN_H

#include <stddef.h>
#include <stdint.h>

#include <deque>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "archiver/file_search.h"
#include "archiver/items.h"
#include "archiver/section_work.h"
#include "plan/closed_files.h"
#include "plan/seen_files.h"

/*
 * A run of a section of closed files: each that is there and was not archived before is sent, oldest first. One that
 * cannot be sent keeps no other from it. What a look has found and a later one does not, before it was archived, is
 * reported once.
 */
class ClosedFilesRun {
 public:
  ClosedFilesRun(const SectionWork& what, const Items& sent_by) : to(what), items(sent_by), search(what) {}

  void archive();

  /*
   * Looks for the section's files without any session. Returns those that are to be archived, oldest first; the desk
   * hears of their number, with those that cannot be read, and the store of each.
   */
  struct Look {
    std::vector<ClosedFile> files;
    size_t unreadable = 0;
    int32_t waiting() const { return static_cast<int32_t>(files.size() + unreadable); }
  };
  Look look(Unreadable unreadable_ones) const;

 private:
  using Begun = std::deque<Intent>;

  void report_lost(const SeenFiles& seen, const std::set<std::string>& directories,
                   const std::vector<UnreadableFile>& unreadable) const;
  int64_t begun_at(const ArchivedFile& file) const;
  bool archive_file(const ClosedFile& file) const;
  Begun begin_together(const ClosedFile* first, const ClosedFile* last) const;
  bool archive_begun(const ClosedFile& file, Begun& begun) const;

  const SectionWork& to;
  const Items& items;
  const FileSearch search;
};

#endif
