#ifndef TAVREND_PLAN_CLOSED_FILES_H
#define TAVREND_PLAN_CLOSED_FILES_H

#include <vector>

#include "plan/log_file.h"

/* A closed file that was archived: one that has another size or time of modification since is a new item. */
struct ArchivedFile {
  Identity identity;
  int64_t size = 0;
  int64_t mtime_ns = 0;
};

/* Whether file was archived as archived says, under whatever name. */
bool is_archived(const ArchivedFile& archived, const LogFile& file);

/* Returns those of found that are to be archived, oldest first by time of modification. */
std::vector<LogFile> files_to_archive(std::vector<LogFile> found, const std::vector<ArchivedFile>& archived);

#endif
