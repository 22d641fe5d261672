#include "TavrenHost.h"
#include "TavrenTunables.h"
#include "tavren_basic.h"
#include "tavren_util.h"

/*
 * What is tried and claimed before a service processor archives into a directory, and how much space is used there.
 */
namespace {

constexpr char test_directory[] = "test";
constexpr char first_test_file[] = "test/2000-01-01T00:00:00";
constexpr char second_test_file[] = "test/2000-01-01T00:00:01";
constexpr char test_text[] = "test file\n";
constexpr int test_text_length = sizeof test_text - 1;
constexpr unsigned int file_mode = 0644;

constexpr char marker_prefix[] = ".chassis.";
constexpr char marker_pattern[] = ".chassis.*";
constexpr char list_markers[] = "echo .chassis.*";

constexpr int command_not_found = 127;

/* Returns whether what list_markers prints is the marker of a chassis, and not the pattern that matched nothing. */
bool is_marker_line(const std::string& line) {
  return line.rfind(marker_prefix, 0) == 0 && line.find(marker_pattern) == std::string::npos;
}

}  // namespace

void TavrenHost::test_host() {
  make_directory(test_directory);
  send_data(test_text, test_text_length, first_test_file, file_mode);
  send_data(test_text, test_text_length, second_test_file, file_mode);
  run_and_expect_line(get_cmd("head") + first_test_file, "test file");
  /* The names are time stamps, so the first in a listing is the oldest. */
  run_and_expect_line(get_cmd("ls") + "test | " + get_cmd("head"), "2000-01-01T00:00:00");
  run_and_check_ecode(get_cmd("du") + test_directory);
  run_and_check_ecode(get_cmd("rm") + "-r test");
}

void TavrenHost::create_chassis_file() {
  const char* id = nullptr;
  const char* failed_call = nullptr;
  const int result = tavren_get_chassis_id(&id, &failed_call);
  if (result != 0) tavren_throw_syscall_error(std::string("create_chassis_file->") + failed_call, result);

  const std::string name = std::string(marker_prefix) + id;
  int status = 0;
  std::list<std::string> lines;
  run_command(list_markers, status, lines, TavrenTunables::instance().get_ssh_command_timeout());
  /* Markers of others beside ours are tolerated, deliberately: the directory was ours before. */
  if (lines.size() == 1 && lines.front().find(name) != std::string::npos) return;
  if (lines.size() == 1 && is_marker_line(lines.front())) {
    TavrenError error(TAVREN_E_CHASSIS_CONFLICT, settings.dir, "");
    error.add_line(TAVREN_E_INCORRECT_OUTPUT, list_markers, "1");
    error.add_line(TAVREN_E_COMMAND_OUTPUT, lines.front(), "");
    throw error;
  }
  send_data("", 0, name, file_mode);
}

bool TavrenHost::get_dir_sizes(const std::string& pattern, std::map<std::string, int>& sizes) {
  /* The pattern is deliberately not quoted: the shell expands it. */
  const std::string command = get_cmd("du") + pattern;
  int status = 0;
  std::list<std::string> lines;
  run_command(command, status, lines, TavrenTunables::instance().get_ssh_du_command_timeout());
  if (status == command_not_found) {
    TavrenError error(TAVREN_E_COMMAND_FAILED, command, tavren_int_to_string(status));
    console_error_connection(nullptr);
    for (const std::string& line : lines) error.add_line(TAVREN_E_COMMAND_OUTPUT, line, "");
    throw error;
  }

  /* Any other status is accepted: unreadable entries cause one, and the rest is printed all the same. */
  bool found = false;
  for (const std::string& line : lines) {
    std::string name;
    int size = 0;
    if (parse_du_output_line(line, name, size) != 0) continue;
    sizes[name] = size;
    found = true;
  }
  return found;
}

int TavrenHost::parse_du_output_line(const std::string& line, std::string& name, int& size) {
  const size_t tab = line.find('\t');
  if (tab == std::string::npos) return -1;
  if (tavren_cstring_to_int(line.substr(0, tab).c_str(), &size) != 0) return -1;
  name = line.substr(tab + 1);
  /* A pattern that ends in a slash and a point is printed as it stands. */
  if (name.size() >= 2 && name.compare(name.size() - 2, 2, "/.") == 0) name.resize(name.size() - 2);
  return 0;
}
