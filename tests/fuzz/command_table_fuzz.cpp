/* The remote command table, against a plain model; what is printed reads back as it was. */
#include <map>
#include <sstream>

#include "TavrenHost.h"
#include "fuzz/fuzz.h"
#include "fuzz/settings_model.h"

namespace {

using Table = std::map<std::string, std::string>;

/*
 * Nothing takes a name out of the table, so each input would find those of the inputs before it. The language lets an
 * explicit instantiation name what is private; this one hands out the table itself.
 */
template <Table* table>
struct PrivateTable {
  friend Table& library_table() { return *table; }
};
Table& library_table();
template struct PrivateTable<&TavrenHost::cmd_map>;

const Table& defaults() {
  static const Table table = {
      {"cat", "/bin/cat "},     {"cd", "cd "},         {"du", "/usr/bin/du -sk "},  {"head", "/usr/bin/head -n 1 "},
      {"ls", "/bin/ls -1 "},    {"rm", "/bin/rm -f "}, {"mkdir", "/bin/mkdir -p "}, {"scp", "scp -q -t "},
      {"ssh", "/usr/bin/ssh "}, {"sh", "/bin/sh "}};
  return table;
}

std::string written_by(void (*print)(std::ostream&)) {
  std::ostringstream out;
  print(out);
  return out.str();
}

void check(const Table& table) {
  std::string lines;
  std::string for_people =
      settings_model::padded("NAME", 12) + "COMMAND\n" + settings_model::padded("----", 12) + "-------\n";
  bool one_line_each = true;
  for (const auto& [name, text] : table) {
    lines += name + "=" + text + "\n";
    for_people += settings_model::padded(name, 12) + text + "\n";
    /* One line for each command is the form: a newline in a text, which only set_cmd can put there, breaks it. */
    one_line_each = one_line_each && text.find('\n') == std::string::npos;
  }
  MUST(written_by(TavrenHost::print_cmds) == lines);
  MUST(written_by(TavrenHost::print_cmd_table) == for_people);
  if (!one_line_each) return;
  library_table().clear();
  TavrenHost::set_cmds(lines);
  MUST(library_table() == table);
}

/* Looks name up. Returns whether it has a command: a program that asks for another ends there. */
bool look_up(const std::string& name, const Table& table) {
  const auto expected = table.find(name);
  const bool known = expected != table.end() && !expected->second.empty();
  try {
    MUST(TavrenHost::get_cmd(name) == (known ? expected->second : ""));
    MUST(known);
  } catch (const FailedAssertion& failed) {
    MUST(failed.is_one_of({"result.size() != 0"}));
    MUST(!known);
  }
  return known;
}

void set(const std::string& name, const std::string& text, Table& table) {
  std::string message;
  TavrenHost::set_cmd(name, text, message);
  if (name == "all" && text == "default") {
    MUST(message.empty());
    for (const auto& [usual_name, usual_text] : defaults()) table[usual_name] = usual_text;
  } else if (table.count(name) == 0) {
    MUST(message == "Unknown command name: \"" + name + "\".");
  } else {
    MUST(message.empty());
    table[name] = text + " ";
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  library_table().clear();
  TavrenHost::reset_cmd_map();
  Table table = defaults();
  check(table);

  for (int count = input.byte() % 8; count > 0; --count) {
    const uint8_t operation = input.byte();
    const std::string name = input.text();
    if (operation % 2 == 0) {
      if (!look_up(name, table)) return 0;
    } else {
      set(name, input.text(), table);
    }
  }
  const std::string text = input.rest();
  TavrenHost::set_cmds(text);
  for (const auto& [name, command] : settings_model::settings_of(text)) table[name] = command;
  check(table);
  return 0;
}
