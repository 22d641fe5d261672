#ifndef TESTS_TAVREND_SIMULATED_MACHINE_H
#define TESTS_TAVREND_SIMULATED_MACHINE_H

#include <stdint.h>

#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "plan/closed_files.h"
#include "plan/growing_file.h"
#include "plan/names.h"
#include "plan/space.h"

/* A machine, its disk and its archive, in which everything happens by chance. */
namespace simulated {

constexpr int64_t hour_ms = 3600000;
constexpr int32_t item_scale = 2048; /* bytes of an item for each byte of a log, so that a few MB fill up */

/* Draws from bytes that are given, two for each, as long as there are any. */
class Chance {
 public:
  explicit Chance(uint64_t seed, const std::string& given = "") : engine(seed), bytes(given) {}
  int64_t below(int64_t end) {
    const uint64_t drawn = position + 2 <= bytes.size() ? next_of_given() : engine();
    return static_cast<int64_t>(drawn % static_cast<uint64_t>(end));
  }
  int64_t between(int64_t first, int64_t last) { return first + below(last - first + 1); }
  bool one_in(int64_t count) { return below(count) == 0; }

 private:
  uint64_t next_of_given() {
    const auto high = static_cast<unsigned char>(bytes[position++]);
    const auto low = static_cast<unsigned char>(bytes[position++]);
    return static_cast<uint64_t>(high) << 8 | low;
  }

  std::mt19937_64 engine;
  const std::string bytes;
  size_t position = 0;
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

  uint64_t free_inode(std::set<uint64_t> used = {}) const {
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
  explicit Machine(const Chance& its_chance) : chance(its_chance) {}

  Chance chance;
  int64_t uptime_ms = 0;
  int64_t clock_ms = int64_t{1750000000} * 1000;
  bool is_calm = false; /* nothing fails */

  /* The archive: items by compartment and section, oldest first. */
  std::map<int, std::map<std::string, std::vector<Item>>> archive;
  int32_t limit_mb[2] = {no_space_limit, no_space_limit};
  std::string trouble; /* the first promise that was broken */

  int64_t now_ns() const { return clock_ms * 1000000; }

  /* Like no other, whatever is drawn: logs that are alike in all that is looked at are the same log. */
  std::string new_word() {
    std::string word;
    for (int64_t rest = ++words; word.size() < 10; rest /= 26) word += static_cast<char>('a' + rest % 26);
    return word;
  }

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

  static void note_new_file(Section& section, const LogFile& file) {
    for (ArchivedFile& known : section.kept.archived) {
      if (is_same_file(known.identity, file)) known.identity.inode = 0;
    }
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

 private:
  int64_t words = 0;
};

}  // namespace simulated

#endif
