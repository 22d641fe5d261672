#ifndef TAVREND_PLAN_GROWING_FILE_H
#define TAVREND_PLAN_GROWING_FILE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "plan/closed_files.h"
#include "plan/log_file.h"

/* How far a followed log was archived. */
struct Progress {
  Identity identity;
  int64_t offset = 0;    /* bytes that are archived */
  int64_t seen = 0;      /* bytes that there were when it was looked at last, offset or more */
  int64_t mtime_ns = 0;  /* when it was looked at last */
  bool finished = false; /* it was rotated away, and what there was of it is archived or known to be lost */
  std::string log{};     /* whose progress it is: its path, log_dir_prefix before it; empty: not known */
};

bool operator==(const Progress& a, const Progress& b);

/* What is to be done with a followed log, in this order. */
struct Stretch {
  LogFile file;
  int64_t first = 0;  /* bytes from the file's beginning */
  int64_t end = 0;    /* the one behind the last */
  bool grows = false; /* more may follow: what stands behind the last newline waits for its end */
  bool lost = false;  /* these bytes were rotated away unread: of the log at path nothing is known but its path */
};

/*
 * Returns what is to be archived, and what was lost, of the log at path. present is the file that is there now; beside
 * are those in its directory whose names go on behind its name with "." or "-"; known are files of this log that were
 * archived whole, or passed over.
 *
 * A file that was rotated away is finished first. It is looked for beside by its identity, or, when it was copied and
 * truncated, by its first bytes alone; then files beside that are not known come whole, oldest first, because there may
 * have been several rotations between two looks; then the new file, from its beginning. While there is nothing in that,
 * the service may not know of the rotation yet: it goes on in the file before. Which files are new is no matter of
 * times of modification: the clock of a machine that has just started may be years behind.
 */
std::vector<Stretch> plan_growing_file(const std::string& path, const std::optional<Progress>& progress,
                                       const std::optional<LogFile>& present, std::vector<LogFile> beside,
                                       const std::vector<Identity>& known);

/*
 * Returns what was written to rotated files, which are beside, after they were archived whole: of a service with
 * several processes one may still write there while another has the new log. One that was passed over may be no file of
 * the log.
 */
std::vector<Stretch> plan_late_ends(const std::vector<LogFile>& beside, const std::vector<ArchivedFile>& archived);

/* Returns how much is archived of a file that was seen, and is gone, when something was written behind its end. */
int64_t archived_bytes(const std::vector<ArchivedFile>& archived, const ArchivedFile& seen);

/* How far a log is archived when it is looked at for the first time. */
Progress progress_at_first(const std::optional<LogFile>& present);

/* Whether file is the one that progress speaks of, with more to come. */
bool is_in_progress(const Progress& progress, const LogFile& file);

/*
 * Whether a file beside may be a copy of the one that progress speaks of, by its first bytes alone. Where these are not
 * all by which files are told from one another, others may begin alike, and a copy is only looked for when the file was
 * emptied in its place: its inode is that of another one then, or 0. One that was empty has no first bytes.
 */
bool may_have_copies(const Progress& progress, const std::optional<LogFile>& present,
                     const std::vector<LogFile>& beside);

/*
 * Returns progress with what there is now of its file, wherever that is, and with its first bytes: so much is lost when
 * it is rotated away before the next look. One that was emptied in its place is in its copy from then on, or nowhere:
 * by the next look it may be as long as before, and begin alike.
 */
Progress progress_as_seen(const std::string& path, const Progress& progress, const std::optional<LogFile>& present,
                          std::vector<LogFile> beside, const std::vector<Identity>& known);

/*
 * Returns those of beside of which nothing is to be archived, and which are known from then on: at the first look what
 * was rotated before, and later the compressed forms of files that are known, and those unpacked again.
 */
std::vector<LogFile> files_to_pass_over(const std::optional<Progress>& progress, const std::optional<LogFile>& present,
                                        const std::vector<LogFile>& beside, const std::vector<ArchivedFile>& known);

/* At most so many bytes make one piece, before compression. */
constexpr int64_t longest_piece = int64_t{64} * 1024 * 1024;

/*
 * Returns where the piece that begins at first ends, first when there is none yet. It ends behind a newline where it
 * holds one; what follows waits for its end, unless the piece is a longest one or the file does not grow any more.
 * last_newline(first, end) returns the place of the last newline between the two, or -1.
 */
int64_t end_of_piece(const Stretch& stretch, int64_t first,
                     const std::function<int64_t(int64_t first, int64_t end)>& last_newline);

/* Returns how many pieces a stretch may take, as far as its length tells. */
int32_t pieces_of(const Stretch& stretch);

/* Whether name is that of a rotated file of the log called base. */
bool is_rotated_name(const std::string& base, const std::string& name);

#endif
