// A program in C++17 that somebody else might write: it opens a session with this machine's own shell in the place of
// an archive host, runs a command there, and catches what the library throws about one that fails.
#include <tavren.h>

#include <iostream>
#include <list>
#include <string>

namespace {

void run_commands(TavrenHost& host) {
  std::list<std::string> lines;
  host.run_and_check_ecode("echo from the far side; pwd", lines);
  for (const std::string& line : lines) std::cout << line << '\n';
  try {
    host.run_and_check_ecode("exit_with() { return $1; }; exit_with 3");
  } catch (const TavrenError& error) {
    error.print_body(std::cout);
  }
}

}  // namespace

int main() {
  std::string refusal;
  TavrenTunables::instance().set_tunable("loopback_login", "1", refusal);
  std::cerr << refusal;

  std::string text[] = {"localhost", "/", "nobody", "", "", ""};
  tavren_settings_t settings = {text[0].data(), text[1].data(), text[2].data(),
                                text[3].data(), text[4].data(), text[5].data()};
  TavrenHost host(true, false);
  try {
    host.set_settings(settings);
    host.enable();
    host.open_connection();
    run_commands(host);
    host.close_connection();
  } catch (const TavrenError& error) {
    error.print(std::cerr);
    return 1;
  }
  return 0;
}
