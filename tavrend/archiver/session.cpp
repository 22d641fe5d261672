#include "archiver/session.h"

#include <algorithm>
#include <list>
#include <sstream>
#include <vector>

#include "TavrenExceptions.h"
#include "plan/space.h"
#include "tavren_util.h"

namespace {

constexpr unsigned int item_mode = 0644;
constexpr size_t piece_size = 32768; /* bytes */
constexpr int64_t kib_of_a_directory = 4;

/* A copy of the configuration in the form that the library takes. */
class SettingsRecord {
 public:
  explicit SettingsRecord(Settings settings) : copy(std::move(settings)) {}
  tavren_settings_t record() {
    return {copy.host.data(),     copy.dir.data(),      copy.user.data(),
            copy.password.data(), copy.host_key.data(), copy.fingerprint.data()};
  }

 private:
  Settings copy;
};

size_t read_piece(const OpenFile& file, const std::string& path, int64_t offset, int64_t rest, char* piece) {
  const size_t n = read_some(file, path, offset, piece, static_cast<size_t>(std::min<int64_t>(rest, piece_size)));
  if (n == 0) throw FileChanged(path);
  return n;
}

/*
 * A far side that has complained may take nothing more: its complaint, which is looked for behind each piece, is then
 * found when the time for this one is over, and says more than that.
 */
void send_piece(TavrenHost& host, const char* piece, unsigned int length) {
  try {
    host.continue_send_file(piece, length);
  } catch (const TavrenTimeout&) {
    host.continue_send_file(piece, 0);
    throw;
  }
}

std::string directory_of(const std::string& remote_path) { return remote_path.substr(0, remote_path.find('/')); }

int32_t megabytes_of(int64_t kib) { return static_cast<int32_t>((kib + 1023) / 1024); }

}  // namespace

Session::Session(Desk& where, const Work& what) : desk(where), work(what), host(true, true) {
  SettingsRecord settings(work.config.settings);
  host.set_settings(settings.record());
  host.enable();
}

Session::~Session() {
  tavren_connection_status_t status{};
  long when = 0;
  host.get_connection_status(status, when);
  host.close_connection();
  if (when != 0) desk.set_connection(status, when);
}

/* Runs action; what goes wrong because the session was ended meanwhile is no failure. */
template <class Step>
auto Session::step(Step action) {
  desk.check_cancelled();
  try {
    return action();
  } catch (const TavrenError&) {
    desk.check_cancelled();
    throw;
  } catch (const TavrenTimeout&) {
    desk.check_cancelled();
    throw;
  } catch (const TavrenOperationCancelled&) {
    throw Cancelled();
  }
}

void Session::open() {
  try {
    step([this] { host.open_connection(); });
  } catch (const Cancelled&) {
    /* A login that is ended on purpose has no outcome: that of the one before it stays in the status. */
    host.clear_connection_status();
    throw;
  }
  desk.set_connection(TAVREN_CONNECTION_OK, time(nullptr));
}

void Session::claim() {
  step([this] { host.create_chassis_file(); });
  desk.note_claim();
}

int64_t Session::used_kib(int compartment) {
  const auto known = measured.find(compartment);
  if (known != measured.end()) return known->second;
  int64_t used = 0;
  try {
    used = measure(compartment);
  } catch (const Cancelled&) {
    throw;
  } catch (...) {
    desk.set_used(compartment, -3);
    throw;
  }
  measured[compartment] = used;
  desk.set_used(compartment, megabytes_of(used));
  return used;
}

int64_t Session::measure(int compartment) {
  const std::vector<std::string> names = sections_of(compartment);
  if (names.empty()) return 0;
  std::string pattern;
  for (const std::string& name : names) pattern += TavrenHost::quote_for_shell("./" + name) + " ";
  pattern += "2>/dev/null";
  std::map<std::string, int> sizes;
  step([&] { host.get_dir_sizes(pattern, sizes); });
  check_that_all_are_measured(names, sizes.size(), pattern);
  int64_t used = 0;
  for (const auto& [name, kib] : sizes) used += kib;
  return used;
}

/* A directory that is not there yet has no size. One with items has, and without it the limit would be passed. */
void Session::check_that_all_are_measured(const std::vector<std::string>& names, size_t sizes,
                                          const std::string& pattern) {
  if (sizes >= names.size()) return;
  const auto with_items =
      std::count_if(names.begin(), names.end(), [this](const std::string& name) { return !first_item(name).empty(); });
  if (sizes >= static_cast<size_t>(with_items)) return;
  throw TavrenError(TAVREN_E_INCORRECT_OUTPUT, TavrenHost::get_cmd("du") + pattern,
                    tavren_int_to_string(static_cast<int>(sizes)));
}

std::vector<std::string> Session::sections_of(int compartment) {
  std::vector<std::string> names;
  for (const ArchivedSection& section : desk.with_store([](Store& store) { return store.sections(); })) {
    if (section.compartment == compartment) names.push_back(section.name);
  }
  return names;
}

std::string Session::first_item(const std::string& section) {
  std::list<std::string> lines;
  const std::string list = TavrenHost::get_cmd("ls") + TavrenHost::quote_for_shell("./" + section) + " 2>/dev/null | " +
                           TavrenHost::get_cmd("head");
  step([&] { host.run_and_check_ecode(list, lines); });
  return lines.empty() ? "" : lines.front();
}

std::string Session::oldest_item(int compartment) {
  std::string oldest;
  std::string oldest_name;
  for (const std::string& section : sections_of(compartment)) {
    const std::string name = first_item(section);
    if (name.empty() || (!oldest.empty() && name >= oldest_name)) continue;
    oldest_name = name;
    oldest = section;
    oldest.append("/").append(name);
  }
  return oldest;
}

void Session::make_room(int compartment, int64_t bytes, int64_t of_file, const std::string& remote_path) {
  const int32_t limit = work.config.space_limit[compartment];
  if (limit == no_space_limit) return;
  /* Directories use room, too, which removing items does not give back. */
  const int64_t of_directories = kib_of_a_directory * static_cast<int64_t>(sections_of(compartment).size());
  if (room_for(of_file, of_directories, limit) != Room::fits) throw NoRoom(remote_path);
  while (room_for(bytes, used_kib(compartment), limit) != Room::fits) {
    const std::string oldest = oldest_item(compartment);
    if (oldest.empty()) throw NoRoom(remote_path);
    remove(oldest);
  }
}

std::optional<int64_t> Session::size_of(const std::string& remote_path) {
  std::list<std::string> lines;
  const std::string count = "{ wc -c <" + TavrenHost::quote_for_shell("./" + remote_path) + "; } 2>/dev/null | " +
                            TavrenHost::get_cmd("head");
  step([&] { host.run_and_check_ecode(count, lines); });
  if (lines.empty()) return std::nullopt;
  std::istringstream number(lines.front());
  int64_t size = -1;
  number >> size;
  return number && size >= 0 ? std::optional<int64_t>(size) : std::nullopt;
}

void Session::remove(const std::string& remote_path) {
  step([&] { host.remove_file(remote_path); });
  measured.clear();
}

void Session::send(const OpenFile& file, const std::string& path, int64_t first, int64_t bytes,
                   const std::string& remote_path, int compartment, const std::function<void()>& check) {
  const std::string directory = directory_of(remote_path);
  if (directories.insert(directory).second) step([&] { host.make_directory(directory); });
  step([&] { host.start_send_file(remote_path, static_cast<uint32_t>(bytes), item_mode); });
  std::vector<char> piece(piece_size);
  for (int64_t sent = 0; sent < bytes;) {
    const size_t length = read_piece(file, path, first + sent, bytes - sent, piece.data());
    if (sent + static_cast<int64_t>(length) == bytes) check();
    step([&] { send_piece(host, piece.data(), static_cast<unsigned int>(length)); });
    sent += static_cast<int64_t>(length);
  }
  if (bytes == 0) check();
  step([&] { host.end_send_file(); });
  const auto known = measured.find(compartment);
  if (known == measured.end()) return;
  known->second += kib_of(bytes);
  desk.set_used(compartment, megabytes_of(known->second));
}
