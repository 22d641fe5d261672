#ifndef TESTS_FUZZ_PLAIN_HOST_H
#define TESTS_FUZZ_PLAIN_HOST_H

#include <stdio.h>

#include <map>

#include "fuzz/disk_usage_model.h"
#include "fuzz/plain_shell.h"

/*
 * What TavrenHost must make of a played far side beside running commands there: logging in, files and streams, and
 * what it does with remote files.
 */
class PlainHost : public PlainShell {
 public:
  using PlainShell::PlainShell;

  struct Settings {
    std::string host, dir, user, password, host_key;
    std::vector<std::string> spellings; /* of the host in the password prompt */
  };

  int connect_timeout = 120; /* seconds, as that for the shell */
  int shell_start_timeout = 120;

  void open(const Settings& settings, bool configure_shell) {
    try {
      as_error("/usr/bin/ssh", [&] {
        ask_for_password(settings);
        wait_for_shell(settings);
      });
    } catch (PlainError& error) {
      error.lines.push_front({4, settings.host, ""});
      throw;
    }
    run_and_check_ecode("cd " + quoted(settings.dir));
    if (configure_shell) run_line("umask 022; set +f", nullptr);
  }

  bool get_dir_sizes(const std::string& pattern, std::map<std::string, int>& sizes) {
    constexpr int seconds = 120; /* a tunable of its own, as it is by default */
    int status = 0;
    Lines lines;
    const std::string command = "/usr/bin/du -sk " + pattern;
    run_command(command, status, lines, seconds);
    if (status == 127) throw PlainError(14, command, "127").add_all(15, lines);
    bool found = false;
    for (const std::string& line : lines) {
      const DiskUsageModel usage(line);
      if (!usage.kibibytes) continue;
      sizes[usage.name] = *usage.kibibytes;
      found = true;
    }
    return found;
  }

  bool remove_first_file(const std::string& dir) {
    Lines lines;
    run_and_check_ecode("/bin/ls -1 " + dir + " 2>/dev/null | /usr/bin/head -n 1 ", lines);
    if (lines.empty()) return false;
    remove_file(dir + "/" + lines.front());
    return true;
  }

  void remove_file(const std::string& path) { run_and_check_ecode("/bin/rm -f " + path_of(path)); }

  void try_to_create_file(const std::string& path) {
    run_and_expect_line("echo file-is-writable >" + path_of(path) + " && echo OK", "OK");
    run_and_expect_line("/bin/cat " + path_of(path), "file-is-writable");
    run_line("/bin/rm -f " + path_of(path), nullptr);
  }

  void start_file(const std::string& path, uint32_t size, unsigned int mode) {
    const std::string name = path.substr(path.rfind('/') + 1);
    if (name.find('\n') != std::string::npos) throw PlainError(2, path);
    running = "scp -q -t " + path_of(path);
    char header[40];
    snprintf(header, sizeof header, "C%04o %u ", mode, size);
    within_time(17, running + " (0)", [&] {
      start("; echo; echo '_TAV/REN_' END\n");
      hear_sink();
      child.send(header + name + "\n", timeout);
      hear_sink();
    });
  }

  void go_on(const std::string& data) {
    if (running.empty()) throw PlainAssertion{"running_command.size() != 0"};
    child.send(data, timeout);
    std::string line;
    if (child.read_line_if_available(line)) throw PlainError(10, running, "1").add(15, line).add(3);
  }

  void end_file() {
    if (running.empty()) throw PlainAssertion{"running_command.size() != 0"};
    const long deadline = child.after(timeout);
    within_time(17, running + " (1)", [&] {
      child.send(std::string("\0E\n", 3), timeout);
      hear_sink();
      hear_sink();
      wait_for_line("_TAV/REN_ END", deadline);
    });
    running.clear();
  }

  void send_data(const std::string& data, const std::string& path, unsigned int mode) {
    start_file(path, static_cast<uint32_t>(data.size()), mode);
    for (size_t p = 0; p < data.size(); p += 2048) go_on(data.substr(p, 2048));
    end_file();
  }

  void start_stream(const std::string& path) {
    running = "/bin/cat >" + quoted(path);
    within_time(17, running + " (0)", [&] { start(" || /bin/cat >/dev/null\n"); });
  }

  void end_stream() {
    if (running.empty()) throw PlainAssertion{"running_command.size() != 0"};
    const long deadline = child.after(timeout);
    std::string line;
    within_time(17, running + " (1)", [&] {
      child.send_eof(timeout);
      try {
        child.read_line(line, deadline, {});
      } catch (const PlainChild::Exited&) {
        child.wait_for_end(deadline);
        throw Done();
      }
      throw PlainError(10, running, "1").add(15, line).add(3);
    });
  }

 private:
  void ask_for_password(const Settings& settings) {
    const long deadline = child.after(connect_timeout);
    std::vector<std::string> prompts;
    for (const std::string& spelling : settings.spellings) prompts.push_back(settings.user + "@" + spelling);
    const std::string question = "Are you sure you want to continue connecting";
    std::vector<std::string> first = prompts;
    if (settings.host_key.empty()) first.push_back(question);
    within_time(21, settings.host, [&] {
      std::string line;
      for (bool is_prompt = false;;) {
        read_line(line, deadline, first, is_prompt);
        if (is_prompt) break;
        if (!settings.host_key.empty() && refuses_key(line)) throw PlainError(7, settings.host).add(8);
      }
      if (settings.host_key.empty() && child.is_at_the_front(question)) child.send("yes\n", 5);
      child.read_until_line_starts_with(prompts, deadline);
      child.send(settings.password + "\n", connect_timeout);
    });
  }

  static bool refuses_key(const std::string& line) {
    const auto has = [&line](const char* text) { return line.find(text) != std::string::npos; };
    const std::string content = line.substr(std::min(line.find_first_not_of('\r'), line.size()));
    const auto begins = [&content](const char* text) { return content.find(text) == 0; };
    return has("REMOTE HOST IDENTIFICATION HAS CHANGED") || has("Host key verification failed.") ||
           begins("The authenticity of ") || begins("Add correct host key in ") ||
           begins("Warning: Permanently added '");
  }

  void wait_for_shell(const Settings& settings) {
    const long deadline = child.after(shell_start_timeout);
    try {
      std::string line;
      bool ignored = false;
      do {
        read_line(line, deadline, {}, ignored);
        if (line.find("Permission denied, please try again") != std::string::npos) throw PlainError(23);
      } while (line.find("SHELL STARTED.") == std::string::npos);
    } catch (const PlainChild::Timeout&) {
      throw PlainError(20, settings.host).add_all(12, child.recent_lines());
    }
  }

  void start(const std::string& what_follows) {
    const long deadline = child.after(timeout);
    child.send("echo '_TAV/REN_' BEGIN; " + running + what_follows, timeout);
    wait_for_line("_TAV/REN_ BEGIN", deadline);
  }

  /* The far side's answer: a zero byte, or another one and why. */
  void hear_sink() {
    const long deadline = child.after(timeout);
    const int byte = child.read_byte(deadline);
    if (byte == 0) return;
    std::string message;
    if_possible([&] { child.read_line(message, deadline, {}); });
    if (byte >= 0x20 && byte < 0x7F) message = static_cast<char>(byte) + message;
    if (byte == 1) {
      if_possible([&] {
        child.send("E\n", 5);
        child.read_byte(deadline);
      });
    }
    throw PlainError(14, running, std::to_string(byte)).add(15, message);
  }

  template <class Action>
  static void if_possible(Action action) {
    try {
      action();
    } catch (const PlainChild::Timeout&) {
    } catch (const PlainChild::Exited&) {
    } catch (const PlainChild::Excessive&) {
    }
  }
};

#endif
