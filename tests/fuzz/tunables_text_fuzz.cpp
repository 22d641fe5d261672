/* Tunables set one by one and from a text, against a plain model; what is printed reads back as it was. */
#include <map>
#include <sstream>

#include "TavrenTunables.h"
#include "fuzz/fuzz.h"
#include "fuzz/number_model.h"
#include "fuzz/settings_model.h"

namespace {

using Values = std::map<std::string, std::string>;

/* The same words as the library's, which has a test of its own for them. */
const Values& defaults() {
  static const Values values = {
      {"failure_retry_interval", "300"},  {"log_dir_prefix", ""},         {"loopback_login", "0"},
      {"ssh_command_timeout", "60"},      {"ssh_connect_timeout", "120"}, {"ssh_du_command_timeout", "120"},
      {"ssh_shell_start_timeout", "120"}, {"subprocess_log_size", "0"}};
  return values;
}

void reset(TavrenTunables& tunables) {
  for (const auto& [name, value] : defaults()) {
    std::string refusal;
    tunables.set_tunable(name, "default", refusal);
    MUST(refusal.empty());
  }
}

/* Returns why the value is refused, nothing when it is not. */
std::string set(Values& values, const std::string& name, const std::string& text) {
  if (values.count(name) == 0) return "Unknown tunable: \"" + name + "\".";
  std::string& value = values[name];
  if (text == "default") {
    value = defaults().at(name);
  } else if (name == "log_dir_prefix") {
    value = text;
  } else {
    const std::optional<int> number = number_model::number(text);
    if (!number) return "Invalid integer value: \"" + text + "\".";
    value = std::to_string(*number);
  }
  return "";
}

std::string text_of(const Values& values) {
  std::string text;
  for (const auto& [name, value] : values) {
    if (value != defaults().at(name)) text += name + "=" + value + "\n";
  }
  return text;
}

std::string table_of(const Values& values) {
  std::string table =
      settings_model::padded("TUNABLE", 25) + "VALUE\n" + settings_model::padded("-------", 25) + "-----\n";
  for (const auto& [name, value] : values) {
    const std::string& standard = defaults().at(name);
    table +=
        settings_model::padded(name, 25) + value + (value == standard ? "" : " (default: " + standard + ")") + "\n";
  }
  return table;
}

std::string printed(TavrenTunables& tunables) {
  std::ostringstream out;
  tunables.print_tunables(out);
  return out.str();
}

void check(const Values& values) {
  TavrenTunables& tunables = TavrenTunables::instance();
  MUST(printed(tunables) == text_of(values));
  std::ostringstream table;
  tunables.print_tunable_table(table);
  MUST(table.str() == table_of(values));
  MUST(std::to_string(tunables.get_loopback_login()) == values.at("loopback_login"));
  MUST(std::to_string(tunables.get_ssh_command_timeout()) == values.at("ssh_command_timeout"));
  MUST(std::to_string(tunables.get_ssh_connect_timeout()) == values.at("ssh_connect_timeout"));
  MUST(std::to_string(tunables.get_ssh_du_command_timeout()) == values.at("ssh_du_command_timeout"));
  MUST(std::to_string(tunables.get_ssh_shell_start_timeout()) == values.at("ssh_shell_start_timeout"));
  MUST(std::to_string(tunables.get_subprocess_log_size()) == values.at("subprocess_log_size"));

  /* One line for each tunable is the form: a newline in a value, which only set_tunable can put there, breaks it. */
  if (values.at("log_dir_prefix").find('\n') != std::string::npos) return;
  TavrenTunables& other = TavrenTunables::tavrend_tunables;
  reset(other);
  MUST(printed(other).empty());
  other.set_tunables(printed(tunables));
  MUST(printed(other) == printed(tunables));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  reset(TavrenTunables::instance());
  Values values = defaults();

  for (int count = input.byte() % 8; count > 0; --count) {
    const auto place = std::next(defaults().begin(), input.byte() % static_cast<int>(defaults().size()));
    const std::string name = input.flag() ? place->first : input.text();
    const std::string value = input.text();
    std::string refusal;
    TavrenTunables::instance().set_tunable(name, value, refusal);
    MUST(refusal == set(values, name, value));
  }
  check(values);

  const std::string text = input.rest();
  TavrenTunables::instance().set_tunables(text);
  for (const auto& [name, value] : settings_model::settings_of(text)) set(values, name, value);
  check(values);
  return 0;
}
