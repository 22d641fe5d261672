#include <utility>

#include "TavrenHost.h"
#include "core/assertion.h"
#include "core/catalogue.h"
#include "core/name_value_lines.h"
#include "tavren_util.h"

namespace {

constexpr int name_column_width = 12;

struct Command {
  const char* name;
  const char* text; /* ends with one blank, so that an argument can follow directly */
};

constexpr Command default_commands[] = {
    {"cat", "/bin/cat "},       {"cd", "cd "},
    {"du", "/usr/bin/du -sk "}, {"head", "/usr/bin/head -n 1 "},
    {"ls", "/bin/ls -1 "},      {"mkdir", "/bin/mkdir -p "},
    {"rm", "/bin/rm -f "},      {"scp", "scp -q -t "},
    {"sh", "/bin/sh "},         {"ssh", "/usr/bin/ssh "},
};

}  // namespace

std::map<std::string, std::string> TavrenHost::cmd_map;
TavrenMutex TavrenHost::cmd_map_mutex;

void TavrenHost::initialize_cmd_map() {
  TAVREN_ASSERT("TavrenHost", cmd_map_mutex.have_lock());
  /* All of them or none: a table that has any is not filled again. */
  std::map<std::string, std::string> filled = cmd_map;
  for (const Command& command : default_commands) filled[command.name] = command.text;
  cmd_map = std::move(filled);
}

void TavrenHost::reset_cmd_map() {
  const TavrenAutoLock lock(cmd_map_mutex);
  initialize_cmd_map();
}

std::string TavrenHost::get_cmd(const std::string& name) {
  const TavrenAutoLock lock(cmd_map_mutex);
  const std::string& result = cmd_map[name];
  TAVREN_ASSERT("TavrenHost", result.size() != 0);
  return result;
}

void TavrenHost::set_cmd(const std::string& name, const std::string& text, std::string& message) {
  if (name == "all" && text == "default") {
    reset_cmd_map();
    return;
  }
  const TavrenAutoLock lock(cmd_map_mutex);
  const auto found = cmd_map.find(name);
  if (found == cmd_map.end()) {
    message = translate("Unknown command name: \"%s\".", name);
    return;
  }
  found->second = text + " ";
}

void TavrenHost::set_cmds(const std::string& text) {
  const TavrenAutoLock lock(cmd_map_mutex);
  for_each_name_and_value(text, [](const std::string& name, const std::string& command) { cmd_map[name] = command; });
}

void TavrenHost::print_cmds(std::ostream& out) {
  const TavrenAutoLock lock(cmd_map_mutex);
  for (const auto& [name, text] : cmd_map) out << name << '=' << text << '\n';
}

void TavrenHost::print_cmd_table(std::ostream& out) {
  out << tavren_pad_end(translate("NAME"), name_column_width) << translate("COMMAND\n");
  out << tavren_pad_end("----", name_column_width) << "-------\n";
  const TavrenAutoLock lock(cmd_map_mutex);
  for (const auto& [name, text] : cmd_map) out << tavren_pad_end(name, name_column_width) << text << '\n';
}
