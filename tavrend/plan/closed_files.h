#ifndef TAVREND_PLAN_CLOSED_FILES_H
#define TAVREND_PLAN_CLOSED_FILES_H

#include <stdint.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "plan/log_file.h"

/* A closed file that was archived: one that has another size or time of modification since is a new item. */
struct ArchivedFile {
  Identity identity;
  int64_t size = 0;
  int64_t mtime_ns = 0;
};

bool operator==(const ArchivedFile& a, const ArchivedFile& b);

/* Whether file was archived as archived says, under whatever name. */
bool is_archived(const ArchivedFile& archived, const LogFile& file);

/* A closed file that is to be archived, and as what. */
struct ClosedFile {
  std::string path;
  ArchivedFile as;
};

/*
 * Returns how many of the bytes that are left of a file go into its next item: what the copy protocol can announce, and
 * less before compression.
 */
int64_t length_of_part(int64_t left, bool compressed);

/*
 * A look at files of which some were archived. There may be tens of thousands of both: a file's first bytes are needed
 * only while it is seen, and what was archived is looked up by its inode.
 */
class ClosedFiles {
 public:
  explicit ClosedFiles(const std::vector<ArchivedFile>& archived);

  /* Takes a file that is there. Two names of one file are one file, and so is one that is seen again. */
  void see(const LogFile& file);

  /*
   * Whether an archived file is none of those that were seen, or is there as another one that was archived. A look that
   * shows no file at all of its device says nothing of it.
   */
  bool is_missing(const ArchivedFile& archived) const;

  /* Hands out the files that are to be archived, oldest first by time of modification. */
  std::vector<ClosedFile> take_waiting();

 private:
  struct Known {
    ArchivedFile file;
    bool is_there = false;
  };
  std::vector<Known> known; /* by inode */
  std::map<Inode, ClosedFile> waiting;
  std::set<uint64_t> devices; /* of the files that were seen */
};

#endif
