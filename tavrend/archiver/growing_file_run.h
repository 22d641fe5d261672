#ifndef TAVREND_ARCHIVER_GROWING_FILE_RUN_H
#define TAVREND_ARCHIVER_GROWING_FILE_RUN_H

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "archiver/items.h"
#include "archiver/section_work.h"
#include "plan/growing_file.h"
#include "plan/seen_files.h"
#include "sources/local_files.h"

/*
 * A run of a section that follows a log: carries out what is planned of it, in its order. What cannot be sent keeps
 * what comes behind it waiting, and what was lost, also of a file that only a look has found, is reported once.
 */
class GrowingFileRun {
 public:
  GrowingFileRun(const SectionWork& what, const Items& sent_by)
      : to(what), items(sent_by), log(what.prefix + what.section.follow) {}

  void archive();

  /*
   * Looks at the log without any session, and plans what archive would do. The desk hears of the pieces that are
   * waiting, and the store of the files. Throws UnreadableFile; nothing where the log is rotated without end, or its
   * file system is missing.
   */
  struct Look {
    Surroundings around;
    Progress progress;
    std::vector<Stretch> late; /* what was written to rotated files behind their end */
    std::vector<Stretch> plan;
  };
  std::optional<Look> look(Unreadable unreadable_ones) const;

  /* Whether nobody has looked at this log yet: nothing would be known of one that is rotated before its first look. */
  bool is_new() const;

 private:
  std::optional<Progress> known_progress(Store& store) const;
  std::optional<Surroundings> look_around_it() const;
  bool is_away(const Surroundings& around) const;
  Progress begin_look(const Surroundings& around) const;
  void note_waiting(const Look& look, const SeenFiles& seen) const;
  bool end_compressed(const Surroundings& around) const;
  void report_lost(const Look& look, const SeenFiles& seen) const;
  bool is_only_unreadable(const Look& look) const;
  bool archive_late_ends(const std::vector<Stretch>& late) const;
  void carry_out(const Look& look) const;
  std::optional<int64_t> archive_pieces(const Stretch& stretch) const;
  bool archive_stretch(const Stretch& stretch) const;
  void give_up_lost(const Progress& progress, const Stretch& stretch) const;

  const SectionWork& to;
  const Items& items;
  const std::string log; /* as the store calls it */
};

#endif
