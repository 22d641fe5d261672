#ifndef TAVREND_ARCHIVER_FILE_SEARCH_H
#define TAVREND_ARCHIVER_FILE_SEARCH_H

#include <stdint.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "archiver/section_work.h"
#include "plan/closed_files.h"
#include "plan/log_file.h"
#include "sources/local_files.h"

/*
 * Finds a section's files again by what they are, because they may be renamed between a look and their turn. Changes
 * nothing but the stored errors.
 */
class FileSearch {
 public:
  using Wanted = std::function<bool(const LogFile&)>;
  struct FoundFile {
    OpenFile open;
    LogFile now; /* under the path that it was looked for by */
  };

  explicit FileSearch(const SectionWork& what) : to(what) {}

  /* Opens the file that was at path, also when it was renamed since. */
  std::optional<FoundFile> find(const std::string& path, const Wanted& is_it) const;

  /* Returns whether a file that is not found only cannot be read, which is reported then: it waits. */
  bool is_only_unreadable(const Identity& identity) const;

  /*
   * Reports that a closed file that was at path is there no more, with its bytes from the first on, and forgets that it
   * was seen. One that is there and has changed since is a new item, and one whose file system is missing waits:
   * returns false for both.
   */
  bool report_gone(const std::string& path, const ArchivedFile& file, int64_t first) const;

 private:
  struct Places {
    std::vector<std::string> paths;
    std::vector<UnreadableFile> unreadable; /* each may be one that is wanted */
  };
  Places places_of(const Wanted& is_wanted) const;

  const SectionWork& to;
};

#endif
