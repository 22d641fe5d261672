/* Whatever the far shell prints for a command: exit status, output and errors are those that the plain host finds. */
#include "fuzz/played_session.h"

namespace {

using Results = PlayedSession::Results;

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
  switch (command.kind) {
    case 4:
      return "/usr/bin/du -sk " + command.text;
    case 5:
      return "/bin/ls -1 " + command.text + " 2>/dev/null | /usr/bin/head -n 1 ";
    case 6:
      return "echo file-is-writable >" + PlainHost::path_of(command.text) + " && echo OK";
    case 7:
      return "/bin/rm -f " + PlainHost::path_of(command.text);
    default:
      return command.text;
  }
}

void say(Results& results, const std::map<std::string, int>& sizes) {
  for (const auto& [name, size] : sizes) results.push_back(std::to_string(size) + " " + name);
}

template <class Host>
void perform(Host& host, const Command& command, Results& results) {
  int status = -12345;
  std::string line;
  std::map<std::string, int> sizes;
  switch (command.kind) {
    case 0:
      host.run_line(command.text, &line);
      results.push_back(line);
      break;
    case 1:
      host.run_command(command.text, status, results, command.seconds);
      results.push_back(std::to_string(status));
      break;
    case 2:
      host.run_and_check_ecode(command.text, results);
      break;
    case 3:
      host.run_and_expect_line(command.text, command.expected);
      break;
    case 4:
      results.push_back(host.get_dir_sizes(command.text, sizes) ? "some" : "none");
      say(results, sizes);
      break;
    case 5:
      results.push_back(host.remove_first_file(command.text) ? "removed" : "none");
      break;
    case 6:
      host.try_to_create_file(command.text);
      break;
    default:
      host.remove_file(command.text);
  }
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
