/* Whatever the far shell prints for a command: exit status, output and errors are those that the plain host finds. */
#include "fuzz/played_session.h"

namespace {

struct Command {
  int kind;
  int seconds;
  std::string text;
  std::string expected;
};

std::vector<Command> commands_from(Input& input) {
  std::vector<Command> commands;
  for (int count = 1 + input.byte() % 4; count > 0; --count) {
    const uint8_t kind = input.byte();
    const int seconds = kind / 8 % 8;
    commands.push_back({kind % 8, seconds, input.text(), kind % 8 == 3 ? input.text() : ""});
  }
  return commands;
}

/* The command that the far side runs for it, as far as there is one. */
std::string remote_command(const Command& command) {
  const std::string& text = command.text;
  const std::string of_files[] = {
      "/usr/bin/du -sk " + text, "/bin/ls -1 " + text + " 2>/dev/null | /usr/bin/head -n 1 ",
      "echo file-is-writable >" + PlainHost::path_of(text) + " && echo OK", "/bin/rm -f " + PlainHost::path_of(text)};
  return command.kind < 4 ? text : of_files[command.kind - 4];
}

template <class Host>
void perform(Host& host, const Command& command, Results& results) {
  int status = -12345;
  std::string line;
  std::map<std::string, int> sizes;
  const std::function<void()> kinds[] = {
      [&] { host.run_line(command.text, &line), results.push_back(line); },
      [&] {
        host.run_command(command.text, status, results, command.seconds);
        results.push_back(std::to_string(status));
      },
      [&] { host.run_and_check_ecode(command.text, results); },
      [&] { host.run_and_expect_line(command.text, command.expected); },
      [&] {
        results.push_back(host.get_dir_sizes(command.text, sizes) ? "some" : "none");
        for (const auto& [name, size] : sizes) results.push_back(std::to_string(size) + " " + name);
      },
      [&] { results.push_back(host.remove_first_file(command.text) ? "removed" : "none"); },
      [&] { host.try_to_create_file(command.text); },
      [&] { host.remove_file(command.text); }};
  kinds[command.kind]();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  played_child::Play play = behaviour_after_login(input);
  const int seconds = input.byte() % 16;
  const std::vector<Command> commands = commands_from(input);

  std::vector<std::string> tokens = {"\n** EXIT CODE: "};
  for (const Command& command : commands) tokens.push_back(PlainHost::marker_of(remote_command(command)) + "\n");
  perform_after_login(play, expanded(input.rest(), tokens), seconds, commands,
                      [](auto& host, const Command& command, Results& results) { perform(host, command, results); });
  return 0;
}
