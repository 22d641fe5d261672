#ifndef TESTS_TAVREND_WATCHED_DIRECTORY_H
#define TESTS_TAVREND_WATCHED_DIRECTORY_H

#include <sys/types.h>

#include <map>
#include <memory>
#include <random>
#include <string>

#include "tavrend/traced_process.h"

/* The contents of files, by path. */
using Contents = std::map<std::string, std::string>;

/* Returns the regular files in a directory and below, by their paths in it. One that goes meanwhile may be empty. */
Contents contents_of(const std::string& directory);

/* Makes the directory have these files and no others. */
void set_contents(const std::string& directory, const Contents& contents);

/*
 * What would be there of a directory's files after a power cut, as far as their being synced promises it: a file's
 * bytes when the file was synced behind their writing, its name, or that it has none any more, when the directory was.
 */
class WatchedDirectory {
 public:
  /* What is there now is on the disk. */
  explicit WatchedDirectory(const std::string& path);

  /* Looks at what a call of that process has done. Returns whether something is another since the last one. */
  bool see(pid_t process, const SystemCall& call);

  /* As programs see it: everything has come to the disk. */
  Contents now() const;
  /* Nothing has that was not synced. */
  Contents synced() const;
  /* Of what was not synced, anything: each sector, each length and each name as it was or as it is. */
  Contents mixed(std::minstd_rand& random) const;

 private:
  struct File {
    ino_t inode = 0;
    std::string content;
    std::string synced;
  };
  using Files = std::map<std::string, std::shared_ptr<File>>;

  bool look();
  bool see_sync(const std::string& path);
  static std::string mixed(const File& file, std::minstd_rand& random);

  const std::string directory;
  Files files;   /* as programs see them */
  Files on_disk; /* those whose names are synced */
};

#endif
