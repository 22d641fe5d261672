/*
 * The daemon's database with flipped bits: it is refused, or says what was written. What it says that does not decide
 * what is archived may be another: errors, and for how long a file was missing.
 */
#include <filesystem>
#include <memory>
#include <sstream>

#include "fuzz/fuzz.h"
#include "store/store.h"
#include "support/files.h"
#include "support/temporary_directory.h"

namespace {

const LogFile closed{"/var/log/a.1", 1, 4711, 5000, 1750000000000000000, std::string(1024, 'h')};
const char* const pattern = "/var/log/a.*";
const LogFile growing{"/var/log/m", 1, 4712, 90000, 1750000001000000000, std::string(1024, 'm')};

void fill(Store& store) {
  store.set_config(ArchiveConfig{{"archive.example", "/dir", "user", "password", "key", ""}, {1000, -1}}, true);
  store.set_claimed();
  store.set_text("tunables", "failure_retry_interval=20\n");
  store.add_section({"audit", 0});
  store.add_section({"messages", 1});
  for (int i = 0; i < 20; ++i) {
    LogFile file = closed;
    file.inode += static_cast<uint64_t>(i);
    const Intent intent{"audit", "audit/" + std::to_string(i), file, false, false, 0, file.size};
    store.begin_item(intent, 1750000000000 + i);
    store.finish_item(intent);
  }
  store.begin_item({"audit", "audit/part", closed, false, false, 0, 1000}, 1750000000050);
  store.finish_item({"audit", "audit/part", closed, false, false, 0, 1000});
  store.begin_item({"messages", "messages/x", growing, true, true, 0, 70000}, 1750000000100);
  store.finish_item({"messages", "messages/x", growing, true, true, 0, 70000});
  store.begin_item({"messages", "messages/y", growing, true, true, 70000, 10000, "/var/log/m", true, 900},
                   1750000000200);
  store.note_look("messages", std::nullopt, {closed}, Store::Known::passed_over);
  const ClosedFile waiting{"/var/log/a.2", {identity_of(closed), closed.size, closed.mtime_ns}};
  store.note_seen("audit", pattern, std::nullopt, {{}, {&waiting}});
  store.add_error("an error");
}

void say(std::ostream& out, const Identity& identity) {
  out << identity.device << " " << identity.inode << " " << identity.head_length << " " << identity.head_checksum;
}

/* Everything that decides what is archived, and where to. */
std::string content_of(Store& store) {
  std::ostringstream out;
  const auto config = store.config();
  out << config.has_value() << store.is_enabled() << store.is_claimed() << store.text("tunables") << "\n";
  if (config) {
    const Settings& s = config->settings;
    for (const std::string& text : {s.host, s.dir, s.user, s.password, s.host_key, s.fingerprint}) out << text << "\n";
    out << config->space_limit[0] << " " << config->space_limit[1] << "\n";
  }
  for (const ArchivedSection& section : store.sections()) out << section.name << " " << section.compartment << "\n";
  for (const char* section : {"audit", "messages"}) {
    out << store.last_item_time(section) << "\n";
    for (const ArchivedFile& file : store.archived_files(section)) {
      say(out, file.identity);
      out << " " << file.size << " " << file.mtime_ns << "\n";
    }
    if (const auto progress = store.progress(section)) {
      say(out, progress->identity);
      out << " " << progress->offset << " " << progress->seen << " " << progress->mtime_ns << progress->finished
          << "\n";
    }
    for (const Intent& intent : store.open_intents(section)) {
      say(out, identity_of(intent.file));
      out << intent.remote_path << intent.file.path << intent.follows << intent.grows << intent.first << " "
          << intent.length << intent.log << intent.compressed << intent.announced << "\n";
    }
  }
  out << store.begun_at("audit", {identity_of(closed), closed.size, closed.mtime_ns}) << "\n";
  for (const ArchivedFile& file : store.seen_files("audit", pattern)) {
    say(out, file.identity);
    out << " " << file.size << " " << file.mtime_ns << store.path_of_seen("audit", file.identity) << "\n";
  }
  return out.str();
}

struct Original {
  Original() {
    Store store(directory.path("state"));
    fill(store);
    content = content_of(store);
  }
  const TemporaryDirectory directory;
  std::string content;
};

}  // namespace

/* Three bytes for each bit: where it is, in the file as if that went on for ever, and which. */
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Original original;
  static const std::string path = original.directory.path("state/tavrend.db");
  static const std::string bytes = read_file(path);
  std::string flipped = bytes;
  Input input(data, size);
  while (!input.is_empty()) {
    const size_t place = static_cast<size_t>(input.byte()) << 8 | input.byte();
    flipped[place % flipped.size()] ^= static_cast<char>(1 << (input.byte() & 7));
  }
  std::filesystem::remove(path + "-journal");
  std::filesystem::remove(path + "-wal");
  write_file(path, flipped);
  try {
    Store store(original.directory.path("state"));
    MUST(content_of(store) == original.content);
  } catch (const StoreError&) {
    /* It is refused, then or when that is read. */
  }
  return 0;
}
