#ifndef TAVREND_PLAN_LOG_FILE_H
#define TAVREND_PLAN_LOG_FILE_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

/* How many bytes at a file's beginning tell it from others. */
constexpr size_t head_size = 1024;

/* A local file as it is now. */
struct LogFile {
  std::string path; /* as the configuration has it, without log_dir_prefix */
  uint64_t device = 0;
  uint64_t inode = 0;
  int64_t size = 0;        /* bytes */
  int64_t mtime_ns = 0;    /* nanoseconds since the epoch */
  std::string head;        /* its first bytes, head_size of them or all */
  int64_t plain_size = -1; /* bytes before it was compressed; -1: it is not, or does not say it */
};

/*
 * By what a file is known again. Its name is no part of it, because names change with each rotation; its inode is not
 * enough, because inodes are used again; its first bytes are not, because two logs may begin alike.
 */
struct Identity {
  uint64_t device = 0;
  uint64_t inode = 0;
  uint32_t head_length = 0; /* bytes, as many as there were: head_size at the most */
  uint64_t head_checksum = 0;
};

bool operator==(const Identity& a, const Identity& b);

/* Where a file is, by which many of them are looked up: of those that are the same here, is_same_file decides. */
using Inode = std::pair<uint64_t, uint64_t>;
inline Inode inode_of(const Identity& known) { return {known.device, known.inode}; }
inline Inode inode_of(const LogFile& file) { return {file.device, file.inode}; }

Identity identity_of(const LogFile& file);

/* Whether file begins with the bytes that known had, which an empty beginning says of every file. */
bool begins_like(const Identity& known, const LogFile& file);

/* Whether file is the known one. It may have grown since. */
bool is_same_file(const Identity& known, const LogFile& file);
bool is_one_of(const std::vector<Identity>& known, const LogFile& file);

/* Whether file's first bytes are those of a compressed one. */
bool is_compressed(const LogFile& file);

#endif
