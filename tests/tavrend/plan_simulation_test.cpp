#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "plan/closed_files.h"
#include "plan/growing_file.h"
#include "plan/names.h"
#include "plan/schedule.h"
#include "plan/space.h"

/*
 * Weeks of a machine with its logs, in which everything happens by chance: appending, rotating in two ways, failing
 * sends, ends of the daemon, a clock that jumps. What is archived is compared with what was ever written. The plan is
 * the daemon's own; carrying it out is a plain copy of what the archiver does, without threads, files and a host.
 */

namespace {

constexpr int64_t hour_ms = 3600000;
constexpr int32_t item_scale = 2048; /* bytes of an item for each byte of a log, so that a few MB fill up */

class Chance {
 public:
  explicit Chance(unsigned seed) : engine(seed) {}
  int64_t below(int64_t end) { return static_cast<int64_t>(engine() % static_cast<uint64_t>(end)); }
  int64_t between(int64_t first, int64_t last) { return first + below(last - first + 1); }
  bool one_in(int64_t count) { return below(count) == 0; }

 private:
  std::mt19937_64 engine;
};

/* A file as it is on the disk. */
struct File {
  int origin = 0; /* which of the logs that there ever were its bytes are from */
  std::string content;
  int64_t mtime_ns = 0;
  uint64_t inode = 0;
};

/* A directory, with inodes that are used again as soon as they are free. */
struct Disk {
  std::map<std::string, File> files;

  uint64_t free_inode() const {
    std::set<uint64_t> used;
    for (const auto& [name, file] : files) used.insert(file.inode);
    uint64_t inode = 1;
    while (used.count(inode) != 0) ++inode;
    return inode;
  }

  void rename(const std::string& from, const std::string& to) {
    const auto found = files.find(from);
    if (found == files.end()) return;
    files[to] = found->second;
    files.erase(from);
  }

  LogFile look(const std::string& name) const {
    const File& file = files.at(name);
    return {name,          1,
            file.inode,    static_cast<int64_t>(file.content.size()),
            file.mtime_ns, file.content.substr(0, head_size)};
  }
};

/* An item of the archive, or one on its way: bytes of one of the logs that there ever were. */
struct Item {
  std::string path;
  int origin = 0;
  int64_t first = 0;
  int64_t end = 0;
  std::string bytes;
};

using Gap = std::pair<int64_t, int64_t>; /* bytes from the first to before the last */

/* What the store keeps of a section. */
struct Kept {
  std::optional<Progress> progress;
  int progress_origin = -1;
  std::vector<ArchivedFile> archived;
  std::optional<Item> intent;
  LogFile intent_file;
  bool intent_grows = false;
  int64_t last_item_ms = 0;
};

struct Section {
  Section(const std::string& its_name, int its_compartment, int32_t seconds)
      : name(its_name), compartment(its_compartment), interval(seconds) {}

  const std::string name;
  const int compartment;
  const int32_t interval; /* seconds */
  int64_t due_ms = 0;
  Disk disk;
  Kept kept;
  std::vector<Item> sent; /* all that ever were, in their order */
  std::vector<Gap> reported;
  int runs = 0;
};

struct SendFailed {};
struct DaemonEnded {};

class Machine {
 public:
  explicit Machine(unsigned seed) : chance(seed) {}

  Chance chance;
  int64_t uptime_ms = 0;
  int64_t clock_ms = int64_t{1750000000} * 1000;
  bool is_calm = false; /* nothing fails */

  /* The archive: items by compartment and section, oldest first. */
  std::map<int, std::map<std::string, std::vector<Item>>> archive;
  int32_t limit_mb[2] = {no_space_limit, no_space_limit};
  std::string trouble; /* the first promise that was broken */

  int64_t now_ns() const { return clock_ms * 1000000; }

  void pass(int64_t ms) {
    uptime_ms += ms;
    clock_ms += ms;
    if (chance.one_in(50)) clock_ms += chance.between(-8 * hour_ms, 8 * hour_ms);
  }

  void expect(bool good, const std::string& what) {
    if (!good && trouble.empty()) trouble = what;
  }

  /* Sends an item, whose bytes are those of the file now; the store keeps what it keeps in each step. */
  void send(Section& section, const File& file, const LogFile& look, Item item, bool grows, bool is_new) {
    Kept& kept = section.kept;
    const int64_t last = kept.last_item_ms;
    if (is_new) {
      kept.last_item_ms = next_item_time(clock_ms, last);
      item.path = item_path(section.name, kept.last_item_ms, "log", false);
      expect(section.sent.empty() || section.sent.back().path < item.path, "names keep their order");
      expect(!kept.intent, "a new item waits for the one that is on its way");
    }
    item.bytes = file.content.substr(static_cast<size_t>(item.first), static_cast<size_t>(item.end - item.first));
    make_room(section, item);
    kept.intent = item;
    kept.intent_file = look;
    kept.intent_grows = grows;
    if (!is_calm && chance.one_in(15)) throw SendFailed();
    if (!is_calm && chance.one_in(15)) throw DaemonEnded();
    auto& there = archive[section.compartment][section.name];
    if (there.empty() || there.back().path != item.path) there.push_back(item);
    if (!is_calm && chance.one_in(30)) throw DaemonEnded(); /* it has arrived, and nobody has noted it */
    section.sent.push_back(item);
    kept.intent.reset();
    const bool is_whole = !grows && item.end == look.size;
    kept.progress_origin = item.origin;
    kept.progress = Progress{identity_of(look), item.end, look.size, look.mtime_ns, is_whole};
    if (is_whole) remember(section, look);
  }

  /* What has arrived of the item that is on its way. */
  void remove_what_has_arrived(Section& section) {
    auto& there = archive[section.compartment][section.name];
    if (!there.empty() && there.back().path == section.kept.intent->path) there.pop_back();
  }

  /* The file of the item that is on its way is gone. */
  void give_up(Section& section) {
    remove_what_has_arrived(section);
    section.kept.intent.reset();
  }

  static void remember(Section& section, const LogFile& file) {
    section.kept.archived.push_back({identity_of(file), file.size, file.mtime_ns});
  }

  static int64_t bytes_of(const Item& item) { return (item.end - item.first) * item_scale; }

  int64_t used_kib(int compartment) {
    int64_t used = 0;
    for (const auto& [name, items] : archive[compartment]) {
      for (const Item& item : items) used += (bytes_of(item) + 1023) / 1024;
    }
    return used;
  }

  void make_room(const Section& section, const Item& item) {
    const int other = 1 - section.compartment;
    const int64_t others = used_kib(other);
    const int64_t limit_kib = static_cast<int64_t>(limit_mb[section.compartment]) * 1024;
    const int64_t size_kib = (bytes_of(item) + 1023) / 1024;
    while (room_for(bytes_of(item), used_kib(section.compartment), limit_mb[section.compartment]) ==
           Room::after_removing_the_oldest) {
      expect(used_kib(section.compartment) + size_kib > limit_kib, "nothing is removed that need not be");
      std::vector<Item>* oldest = nullptr;
      for (auto& [name, items] : archive[section.compartment]) {
        if (items.empty() || items.front().path == item.path) continue;
        if (oldest == nullptr || stamp_of(items.front()) < stamp_of(oldest->front())) oldest = &items;
      }
      if (oldest == nullptr) break;
      oldest->erase(oldest->begin());
    }
    if (limit_mb[section.compartment] != no_space_limit) {
      expect(used_kib(section.compartment) + size_kib <= limit_kib, "the limit is kept");
    }
    expect(used_kib(other) == others, "nothing of another compartment is removed");
  }

  static std::string stamp_of(const Item& item) { return item.path.substr(item.path.find('/') + 1); }
};

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
        if (!is_copied) section.disk.rename("m", "m.half"); /* the writer makes a new one in a moment */
        if (!is_copied) shift();
        if (!is_copied) section.disk.rename("m.half", "m.1");
        return;
      default:
        for (int64_t i = chance.below(4); i > 0; --i) append();
    }
  }

  /* One look, as the archiver does it. */
  void archive() {
    Kept& kept = section.kept;
    resume();
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
    const auto progress = kept.progress;
    std::vector<Identity> known;
    for (const ArchivedFile& file : kept.archived) known.push_back(file.identity);
    for (const Stretch& stretch : plan_growing_file("m", progress, present, beside, known)) {
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

  /* Ends the last log: its rest has no newline to wait for. */
  void finish() {
    if (is_copied) rotate_by_copying();
    rotate_by_renaming();
  }

 private:
  void begin_origin(const std::string& name) {
    File file;
    file.origin = static_cast<int>(written.size());
    file.inode = section.disk.free_inode();
    file.mtime_ns = machine.now_ns();
    section.disk.files[name] = file;
    written.emplace_back();
  }

  /* Words that begin like no other. */
  std::string text() {
    std::string line;
    for (int i = 0; i < 10; ++i) line += static_cast<char>('a' + machine.chance.below(26));
    line += std::string(static_cast<size_t>(machine.chance.below(40)), '.');
    if (!machine.chance.one_in(3)) line += '\n';
    return line;
  }

  void append() {
    if (is_copied) return;
    if (section.disk.files.count("m") == 0) begin_origin("m");
    File& file = section.disk.files["m"];
    const std::string more = text();
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
    if (is_copied) return;
    shift();
    section.disk.rename("m", "m.1");
    begin_origin("m");
  }

  /* In two steps: a look may come between the copy and the truncation. */
  void rotate_by_copying() {
    if (section.disk.files.count("m") == 0) return;
    if (!is_copied) {
      shift();
      File copy = section.disk.files["m"];
      copy.inode = section.disk.free_inode();
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

  Machine& machine;
  Section& section;
  std::vector<std::string> written; /* all that was ever in each log, in their order */
  std::set<int> gone;               /* logs that were removed */
  std::vector<Gap> gaps;            /* that are to be reported */
  bool is_copied = false;           /* and not truncated yet */
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
      change(
          std::next(section.disk.files.begin(), machine.chance.below(static_cast<int64_t>(section.disk.files.size())))
              ->second);
    }
  }

  void archive() {
    resume();
    std::vector<LogFile> found;
    for (const auto& [name, file] : section.disk.files) found.push_back(section.disk.look(name));
    for (const LogFile& look : files_to_archive(found, section.kept.archived)) {
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
    for (int i = 0; i < 10; ++i) file.content += static_cast<char>('a' + machine.chance.below(26));
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

/* Lets the machine live for some intervals of its tasks. Returns the first promise that was broken, or nothing. */
std::string trouble_of(unsigned seed) {
  Machine machine(seed);
  machine.limit_mb[0] = 2;
  machine.limit_mb[1] = 40;
  Section sections[] = {{"audit", 0, 600}, {"other", 0, 900}, {"messages", 1, 300}};
  ClosedLogs audit(machine, sections[0]);
  ClosedLogs other(machine, sections[1]);
  GrowingLog messages(machine, sections[2]);
  messages.archive(); /* what was rotated before the first look is nobody's business */
  std::map<std::string, int64_t> first_run;
  for (Section& section : sections) {
    section.due_ms = first_delay_ms("CH-1", section.name, section.interval);
    first_run[section.name] = section.due_ms;
  }
  const auto work = [&](const Section& section) {
    try {
      if (&section == &sections[0]) audit.archive();
      if (&section == &sections[1]) other.archive();
      if (&section == &sections[2]) messages.archive();
    } catch (const SendFailed&) {
      /* The next run takes it up again. */
    } catch (const DaemonEnded&) {
      /* All that it knows is what it keeps. */
    }
  };
  constexpr int intervals = 100; /* of the log that grows */
  while (sections[2].runs < intervals) {
    machine.pass(machine.chance.between(1, 120000));
    audit.live();
    other.live();
    messages.live();
    for (Section& section : sections) {
      if (machine.uptime_ms < section.due_ms) continue;
      work(section);
      ++section.runs;
      section.due_ms = next_due_ms(section.due_ms, machine.uptime_ms, section.interval);
      const int64_t expected = (machine.uptime_ms - first_run[section.name]) / (int64_t{section.interval} * 1000) + 1;
      machine.expect(section.runs == expected, "each interval has its run, whatever the clock says");
    }
  }
  machine.is_calm = true;
  for (int i = 0; i < 2; ++i) {
    for (const Section& section : sections) work(section);
    messages.finish();
  }
  work(sections[2]);
  audit.check();
  other.check();
  messages.check();
  return machine.trouble;
}

}  // namespace

TEST(Plan, KeepsItsPromisesWhateverComesOverWeeks) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    EXPECT_EQ(trouble_of(seed), "") << "with seed " << seed;
  }
}
