#ifndef TAVREND_ARCHIVER_ITEMS_H
#define TAVREND_ARCHIVER_ITEMS_H

#include <stdint.h>

#include <set>
#include <string>

#include "archiver/file_search.h"
#include "archiver/section_work.h"
#include "sources/local_files.h"
#include "store/store.h"

/* What there is of an item cannot be removed: until it can, nothing of its section is sent. */
struct ItemStays {};

/*
 * The items of a section on their way: each is stored before it is sent, and done after the far side's last answer. One
 * that fails is reported, and nothing of it stays in the archive. What fails of the session is thrown, and the item is
 * still on its way then.
 */
class Items {
 public:
  explicit Items(const SectionWork& what) : to(what), search(what) {}

  /*
   * Carries out the items that were on their way when the daemon or its session ended, under the same names; one whose
   * file is gone stays where all of it has arrived. Returns whether the section can go on. Throws ItemStays.
   */
  bool resume();

  /* Whether what was on its way of that file has failed now: its turn comes again with the section's next run. */
  bool has_failed(const Identity& identity) const { return failed.count(inode_of(identity)) != 0; }

  /*
   * The same of a section that is configured no more: what has not arrived whole goes from the archive. Throws
   * ItemStays.
   */
  void end_all() const;

  /* Whether an item of that file is on its way, so that what becomes of the file is said by the next session. */
  bool is_on_its_way(const Identity& identity) const;

  /* Archives what intent says of file, in as many items as it takes. Returns whether all of them are there. */
  bool send_range(const OpenFile& file, Intent intent) const;

  /* Sends an item that was begun before, under its name. Returns whether it is there. */
  bool send_begun(const OpenFile& file, const Intent& intent) const { return try_item(file, intent, false); }

 private:
  bool resume_item(const Intent& intent, bool is_of_another);
  bool resume_piece_of_another(const Intent& intent);
  bool send_again(const OpenFile& file, Intent intent) const;
  bool has_arrived(const Intent& intent) const;
  bool keep_what_has_arrived(const Intent& intent) const;
  bool try_item(const OpenFile& file, Intent intent, bool is_new) const;
  void send_item(const OpenFile& file, Intent& intent, bool is_new) const;
  void send_payload(const OpenFile& file, Intent& intent, int64_t new_item_ms) const;
  void remove_item(const std::string& remote_path) const;
  void take_back_item(const Intent& intent) const;
  void drop_item(const Intent& intent) const;

  const SectionWork& to;
  const FileSearch search;
  std::set<Inode> failed;
};

#endif
