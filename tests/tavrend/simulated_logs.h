#ifndef TESTS_TAVREND_SIMULATED_LOGS_H
#define TESTS_TAVREND_SIMULATED_LOGS_H

#include <stdint.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "plan/closed_files.h"
#include "plan/growing_file.h"
#include "tavrend/simulated_machine.h"

namespace simulated {

/* A log that grows, and its rotations. */
class GrowingLog {
  static constexpr int most_rotated = 6;

 public:
  GrowingLog(Machine& where, Section& what) : machine(where), section(what) { begin_origin("m"); }

  void live() {
    Chance& chance = machine.chance;
    switch (chance.below(8)) {
      case 0:
        return rotate_by_renaming();
      case 1:
        return rotate_by_copying();
      case 2:
        if (!can_be_rotated()) return;
        if (!is_copied) section.disk.rename("m", "m.half"); /* the writer makes a new one in a moment */
        if (!is_copied) shift();
        if (!is_copied) section.disk.rename("m.half", "m.1");
        return;
      default:
        for (int64_t i = chance.below(4); i > 0; --i) append();
    }
  }

  /* One run, as the archiver does it. Without the host it only looks. */
  void archive() {
    Kept& kept = section.kept;
    if (!machine.is_calm && machine.chance.one_in(4)) {
      look();
      return;
    }
    resume();
    for (const Stretch& stretch : look()) {
      if (!stretch.lost) {
        archive_stretch(stretch);
        continue;
      }
      section.reported.emplace_back(stretch.first, stretch.end);
      if (stretch.file.path == "m") kept.progress->finished = true;
    }
  }

  /* Whether every byte that was ever written is archived once and in its order, or its loss was reported. */
  void check() {
    size_t next = 0;
    for (int origin = 0; origin < static_cast<int>(written.size()); ++origin) {
      const std::string& log = written[static_cast<size_t>(origin)];
      const std::string which = "log " + std::to_string(origin) + " of " + std::to_string(written.size());
      int64_t done = 0;
      for (; next < section.sent.size() && section.sent[next].origin == origin; ++next) {
        const Item& item = section.sent[next];
        machine.expect(item.first == done, which + " goes on where it ended: " + item.path);
        machine.expect(log.compare(static_cast<size_t>(item.first), item.bytes.size(), item.bytes) == 0,
                       which + " has its bytes: " + item.path);
        done = item.end;
      }
      const bool is_whole = done == static_cast<int64_t>(log.size());
      machine.expect(is_whole || gone.count(origin) != 0, which + " is whole: " + std::to_string(done));
    }
    machine.expect(next == section.sent.size(), "items keep the order of the logs");
    machine.expect(section.reported == gaps, "what was lost is reported, and nothing else");
  }

  /* Ends the last log: once there is something in the next one, its rest has no newline to wait for. */
  void finish() {
    if (is_copied) rotate_by_copying();
    rotate_by_renaming();
    append(text() + "\n");
  }

 private:
  /* Returns what is to be done. */
  std::vector<Stretch> look() {
    Kept& kept = section.kept;
    std::optional<LogFile> present;
    if (section.disk.files.count("m") != 0) present = section.disk.look("m");
    std::vector<LogFile> beside;
    for (const auto& [name, file] : section.disk.files) {
      if (is_rotated_name("m", name)) beside.push_back(section.disk.look(name));
    }
    for (const LogFile& file : files_to_pass_over(kept.progress, present, beside, kept.archived)) {
      machine.remember(section, file);
    }
    if (!kept.progress) kept.progress = progress_at_first(present);
    std::vector<Identity> known;
    if (present) machine.note_new_file(section, *present);
    is_looked_at = is_looked_at || present;
    for (const ArchivedFile& file : kept.archived) known.push_back(file.identity);
    machine.expect(plan_late_ends(beside, kept.archived).empty(), "nothing is written to a log that is archived");
    kept.progress = progress_as_seen("m", *kept.progress, present, beside, known);
    return plan_growing_file("m", kept.progress, present, beside, known);
  }

  /* Some begin like all others of their service. */
  void begin_origin(const std::string& name) {
    File file;
    file.origin = static_cast<int>(written.size());
    file.inode = section.disk.free_inode();
    file.mtime_ns = machine.now_ns();
    if (!written.empty() && machine.chance.one_in(3) && are_archived_that_begin_alike()) file.content = beginning;
    section.disk.files[name] = file;
    written.push_back(file.content);
    is_looked_at = false;
  }

  /*
   * What cannot be told apart: one that begins like a rotated one that is archived, whose inode it has, and that no
   * look has found under its own name; several of which none has more than their beginning; and one with no more than
   * that, when it is removed, from one that was emptied in its place.
   */
  bool can_be_rotated() const {
    const Kept& kept = section.kept;
    const auto oldest = section.disk.files.find("m." + std::to_string(most_rotated));
    if (oldest != section.disk.files.end() && is_known_by_its_beginning_alone(oldest->second.origin)) return false;
    const auto file = section.disk.files.find("m");
    if (file == section.disk.files.end()) return true;
    const bool is_archived = kept.progress && kept.progress_origin == file->second.origin &&
                             kept.progress->offset == static_cast<int64_t>(beginning.size());
    if (file->second.content == beginning && !is_archived) return false;
    const LogFile log = section.disk.look("m");
    return is_looked_at || std::none_of(kept.archived.begin(), kept.archived.end(), [&log](const ArchivedFile& known) {
             return is_same_file(known.identity, log);
           });
  }

  bool is_known_by_its_beginning_alone(int origin) const {
    const Kept& kept = section.kept;
    const bool is_in_progress =
        kept.progress_origin == origin && kept.progress && kept.progress->identity.head_length == beginning.size();
    return is_in_progress || (kept.intent && kept.intent->origin == origin && kept.intent_file.head == beginning);
  }

  /* Where one is not, it may be taken for a copy of the log as long as the clock is wrong, and comes late. */
  bool are_archived_that_begin_alike() const {
    const Kept& kept = section.kept;
    for (const auto& [name, file] : section.disk.files) {
      const LogFile log = section.disk.look(name);
      const bool is_known = std::any_of(kept.archived.begin(), kept.archived.end(), [&log](const ArchivedFile& known) {
        return is_same_file(known.identity, log) && known.size == log.size;
      });
      const bool is_in_progress = kept.progress && kept.progress_origin == file.origin;
      if (file.content.rfind(beginning, 0) == 0 && !is_known && !is_in_progress) return false;
    }
    return true;
  }

  /* Nor can a copy. */
  std::set<uint64_t> inodes_of_archived_ones() const {
    std::set<uint64_t> inodes;
    for (const ArchivedFile& known : section.kept.archived) {
      if (is_same_file(known.identity, alike(known.identity.inode))) inodes.insert(known.identity.inode);
    }
    return inodes;
  }

  LogFile alike(uint64_t inode) const {
    LogFile log = section.disk.look("m");
    log.inode = inode;
    return log;
  }

  std::string text() {
    std::string line = machine.new_word();
    line += std::string(static_cast<size_t>(machine.chance.below(40)), '.');
    if (!machine.chance.one_in(3)) line += '\n';
    return line;
  }

  void append() { append(text()); }

  void append(const std::string& more) {
    if (is_copied) return;
    if (section.disk.files.count("m") == 0) begin_origin("m");
    File& file = section.disk.files["m"];
    file.content += more;
    file.mtime_ns = machine.now_ns();
    written[static_cast<size_t>(file.origin)] += more;
  }

  void shift() {
    lose("m." + std::to_string(most_rotated));
    for (int i = most_rotated - 1; i > 0; --i) {
      section.disk.rename("m." + std::to_string(i), "m." + std::to_string(i + 1));
    }
  }

  /* What nobody has ever read leaves no trace; what was begun does. */
  void lose(const std::string& name) {
    const auto file = section.disk.files.find(name);
    if (file == section.disk.files.end()) return;
    const Kept& kept = section.kept;
    gone.insert(file->second.origin);
    if (kept.progress && kept.progress_origin == file->second.origin && !kept.progress->finished &&
        kept.progress->identity.head_length != 0) {
      gaps.emplace_back(kept.progress->offset, kept.progress->seen);
    }
    section.disk.files.erase(file);
  }

  void rotate_by_renaming() {
    if (is_copied || !can_be_rotated()) return;
    shift();
    section.disk.rename("m", "m.1");
    begin_origin("m");
  }

  /* In two steps: a look may come between the copy and the truncation. */
  void rotate_by_copying() {
    if (section.disk.files.count("m") == 0) return;
    if (!is_copied && !can_be_rotated()) return;
    if (!is_copied) {
      shift();
      File copy = section.disk.files["m"];
      copy.inode = section.disk.free_inode(inodes_of_archived_ones());
      copy.mtime_ns = machine.now_ns();
      section.disk.files["m.1"] = copy;
      is_copied = true;
      return;
    }
    File& file = section.disk.files["m"];
    file.content.clear();
    file.mtime_ns = machine.now_ns();
    file.origin = static_cast<int>(written.size());
    written.emplace_back();
    is_copied = false;
  }

  void archive_stretch(const Stretch& stretch) {
    const File file = section.disk.files.at(stretch.file.path);
    int64_t first = stretch.first;
    const auto newline = [&file](int64_t from, int64_t end) {
      const size_t found = file.content.rfind('\n', static_cast<size_t>(end) - 1);
      return found == std::string::npos || static_cast<int64_t>(found) < from ? -1 : static_cast<int64_t>(found);
    };
    for (int64_t end = first; (end = end_of_piece(stretch, first, newline)) != first; first = end) {
      machine.send(section, file, stretch.file, {"", file.origin, first, end, ""}, stretch.grows, true);
    }
    const bool is_whole = !stretch.grows && first == stretch.end;
    const auto& before = section.kept.progress;
    const bool was_finished = before && before->finished && is_same_file(before->identity, stretch.file);
    section.kept.progress_origin = file.origin;
    section.kept.progress =
        Progress{identity_of(stretch.file), first, stretch.file.size, stretch.file.mtime_ns, is_whole};
    if (is_whole && !was_finished) machine.remember(section, stretch.file);
  }

  void resume() {
    Kept& kept = section.kept;
    if (!kept.intent) return;
    for (const auto& [name, file] : section.disk.files) {
      const LogFile look = section.disk.look(name);
      if (!is_same_file(identity_of(kept.intent_file), look) || look.size < kept.intent->end) continue;
      machine.remove_what_has_arrived(section);
      machine.send(section, file, kept.intent_file, *kept.intent, kept.intent_grows, false);
      return;
    }
    machine.give_up(section);
  }

  const std::string beginning = "a log of this service\n";
  Machine& machine;
  Section& section;
  std::vector<std::string> written; /* all that was ever in each log, in their order */
  std::set<int> gone;               /* logs that were removed */
  std::vector<Gap> gaps;            /* that are to be reported */
  bool is_copied = false;           /* and not truncated yet */
  bool is_looked_at = false;        /* under its own name */
};

/* Closed files, numbered: a new one is the first, and some are changed afterwards. */
class ClosedLogs {
  static constexpr int most_files = 7;

 public:
  ClosedLogs(Machine& where, Section& what) : machine(where), section(what) {}

  void live() {
    if (machine.chance.one_in(4)) {
      section.disk.files.erase("a." + std::to_string(most_files));
      for (int i = most_files - 1; i > 0; --i) {
        section.disk.rename("a." + std::to_string(i), "a." + std::to_string(i + 1));
      }
      File file;
      file.inode = section.disk.free_inode();
      section.disk.files["a.1"] = file;
      change(section.disk.files["a.1"]);
    } else if (machine.chance.one_in(6) && !section.disk.files.empty()) {
      const int64_t which = machine.chance.below(static_cast<int64_t>(section.disk.files.size()));
      change(std::next(section.disk.files.begin(), static_cast<ptrdiff_t>(which))->second);
    }
  }

  void archive() {
    resume();
    ClosedFiles found(section.kept.archived);
    for (const auto& [name, file] : section.disk.files) found.see(section.disk.look(name));
    for (const ClosedFile& waiting : found.take_waiting()) {
      const LogFile look = section.disk.look(waiting.path);
      const File& file = section.disk.files.at(look.path);
      machine.send(section, file, look, {"", file.origin, 0, look.size, ""}, false, true);
    }
    for (const auto& [name, file] : section.disk.files) seen.insert(file.origin);
  }

  /* Whether each file that a whole look has found is archived once. */
  void check() {
    std::map<int, int> count;
    for (const Item& item : section.sent) {
      ++count[item.origin];
      machine.expect(item.bytes == written[static_cast<size_t>(item.origin)], "an item is a file: " + item.path);
    }
    for (const auto& [origin, times] : count) machine.expect(times == 1, "a file is archived once");
    for (const int origin : seen) machine.expect(count.count(origin) == 1, "a file is archived");
  }

 private:
  /* Each content that a file ever has is an item of its own. */
  void change(File& file) {
    if (file.content.size() > 600) return; /* an item of the whole limit's size would have no room */
    file.origin = static_cast<int>(written.size());
    file.content += machine.new_word();
    file.content += std::string(static_cast<size_t>(machine.chance.below(200)), '.');
    file.mtime_ns = machine.now_ns();
    written.push_back(file.content);
  }

  void resume() {
    Kept& kept = section.kept;
    if (!kept.intent) return;
    for (const auto& [name, file] : section.disk.files) {
      const LogFile look = section.disk.look(name);
      if (!is_archived({identity_of(kept.intent_file), kept.intent_file.size, kept.intent_file.mtime_ns}, look))
        continue;
      machine.remove_what_has_arrived(section);
      machine.send(section, file, kept.intent_file, *kept.intent, false, false);
      return;
    }
    machine.give_up(section);
  }

  Machine& machine;
  Section& section;
  std::vector<std::string> written;
  std::set<int> seen;
};

}  // namespace simulated

#endif
