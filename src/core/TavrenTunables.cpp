#include "TavrenTunables.h"

#include "core/catalogue.h"
#include "core/name_value_lines.h"
#include "tavren_basic.h"
#include "tavren_util.h"

namespace {

constexpr int name_column_width = 25;

std::string with_default(const std::string& value, const std::string& default_value) {
  return value + translate(" (default: %s)", default_value);
}

}  // namespace

TavrenTunables TavrenTunables::tavrend_tunables;

TavrenTunables::Tunable::Tunable(const char* tunable_name) : name(tunable_name) {}

TavrenTunables::Tunable::~Tunable() = default;

TavrenTunables::IntTunable::IntTunable(const char* tunable_name, int32_t initial, TavrenTunables& tunables)
    : Tunable(tunable_name), value(initial), default_value(initial) {
  tunables.registry[name] = this;
}

std::string TavrenTunables::IntTunable::get_value(bool mention_default) const {
  std::string text = tavren_int_to_string(get());
  if (!mention_default || value_is_default()) return text;
  return with_default(text, tavren_int_to_string(default_value));
}

void TavrenTunables::IntTunable::set_value(const std::string& text, std::string& error) {
  int number = default_value;
  if (text != "default" && tavren_cstring_to_int(text.c_str(), &number) != 0) {
    error = translate("Invalid integer value: \"%s\".", text);
    return;
  }
  value.store(number, std::memory_order_relaxed);
}

bool TavrenTunables::IntTunable::value_is_default() const { return get() == default_value; }

int32_t TavrenTunables::IntTunable::get() const { return value.load(std::memory_order_relaxed); }

TavrenTunables::StringTunable::StringTunable(const char* tunable_name, const std::string& initial,
                                             TavrenTunables& tunables)
    : Tunable(tunable_name), value(initial), default_value(initial) {
  tunables.registry[name] = this;
}

std::string TavrenTunables::StringTunable::get_value(bool mention_default) const {
  if (!mention_default || value_is_default()) return value;
  return with_default(value, default_value);
}

void TavrenTunables::StringTunable::set_value(const std::string& text, std::string&) {
  value = text == "default" ? default_value : text;
}

bool TavrenTunables::StringTunable::value_is_default() const { return value == default_value; }

TavrenTunables::TavrenTunables()
    : failure_retry_interval("failure_retry_interval", 300, *this),
      log_dir_prefix("log_dir_prefix", "", *this),
      loopback_login("loopback_login", 0, *this),
      ssh_command_timeout("ssh_command_timeout", 60, *this),
      ssh_connect_timeout("ssh_connect_timeout", 120, *this),
      ssh_du_command_timeout("ssh_du_command_timeout", 120, *this),
      ssh_shell_start_timeout("ssh_shell_start_timeout", 120, *this),
      subprocess_log_size("subprocess_log_size", 0, *this) {}

TavrenTunables& TavrenTunables::instance() {
  static TavrenTunables tunables;
  return tunables;
}

void TavrenTunables::set_tunable(const std::string& name, const std::string& value, std::string& error) {
  const TavrenAutoLock lock(mutex);
  const auto found = registry.find(name);
  if (found == registry.end()) {
    error = translate("Unknown tunable: \"%s\".", name);
    return;
  }
  found->second->set_value(value, error);
}

void TavrenTunables::set_tunables(const std::string& text) {
  for_each_name_and_value(text, [this](const std::string& name, const std::string& value) {
    /* One bad line must not keep the others from being applied, so its error is dropped. */
    std::string ignored;
    set_tunable(name, value, ignored);
  });
}

void TavrenTunables::print_tunables(std::ostream& out) {
  const TavrenAutoLock lock(mutex);
  for (const auto& [name, tunable] : registry) {
    if (!tunable->value_is_default()) out << name << '=' << tunable->get_value(false) << '\n';
  }
}

void TavrenTunables::print_tunable_table(std::ostream& out) {
  out << tavren_pad_end(translate("TUNABLE"), name_column_width) << translate("VALUE\n");
  out << tavren_pad_end("-------", name_column_width) << "-----\n";
  const TavrenAutoLock lock(mutex);
  for (const auto& [name, tunable] : registry) {
    out << tavren_pad_end(name, name_column_width) << tunable->get_value(true) << '\n';
  }
}
