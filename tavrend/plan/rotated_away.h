#ifndef TAVREND_PLAN_ROTATED_AWAY_H
#define TAVREND_PLAN_ROTATED_AWAY_H

#include <optional>
#include <vector>

#include "plan/closed_files.h"
#include "plan/growing_file.h"
#include "plan/log_file.h"

/*
 * What becomes of a log's file that is there no more by its identity. beside are the files in its directory; those that
 * are known are other ones.
 */

/* Whether one of beside may be a copy of the file, with all that was seen of it. */
bool has_copy(const ArchivedFile& seen, const std::vector<LogFile>& beside, const std::vector<Identity>& known);

/* Returns the one of beside that is the file, compressed since; nothing where neither a time nor a size says so. */
std::optional<LogFile> compressed_form(const ArchivedFile& seen, const std::vector<LogFile>& beside,
                                       const std::vector<Identity>& known);

/*
 * Returns the one of beside that is the log's file that progress speaks of, compressed since, also from a copy that was
 * made before the file was truncated; nothing while the file itself or a copy is there.
 */
std::optional<LogFile> compressed_form(const Progress& progress, const std::optional<LogFile>& present,
                                       const std::vector<LogFile>& beside, const std::vector<Identity>& known);

/* Whether nothing is in that form of the log's file that is not archived: as it says, or by its time and the last look.
 */
bool is_all_archived(const Progress& progress, const LogFile& form);

/*
 * Returns up to where there was something in a file that is only there in that form: as far as that says it, or as a
 * look has seen it. Of more than 4 GiB, or in several parts, a form says too little.
 */
int64_t end_of_file(const LogFile& form, int64_t seen);

/*
 * Takes compressed files out that are being made: what they are made of is there, and they get its time when they are
 * finished.
 */
void leave_out_unfinished_forms(std::vector<LogFile>& beside);

#endif
