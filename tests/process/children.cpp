#include "process/children.h"

#include <stdio.h>

#include "TavrenError.h"
#include "TavrenExceptions.h"
#include "process/checksum.h"
#include "tavren_basic.h"

namespace {

std::string text_of(const TavrenError& error) {
  std::string text;
  for (const TavrenError::error_line_t* line : error.lines) {
    text += (text.empty() ? "" : " ") + std::to_string(line->code) + "(";
    for (int32_t i = 0; i < line->num_args; ++i) text += (i == 0 ? "" : ", ") + line->args[i];
    text += ")";
  }
  return text;
}

}  // namespace

long patient_deadline() { return tavren_get_uptime() + patience; }

long past_deadline() { return tavren_get_uptime() - 1; }

TavrenProcess shell(const std::string& script, bool separate_stdin) {
  return TavrenProcess("/bin/sh", {"-c", script}, separate_stdin);
}

TavrenProcess counterpart(const std::list<std::string>& arguments, bool separate_stdin) {
  return TavrenProcess(COUNTERPART, arguments, separate_stdin);
}

std::string result_of_running(const std::string& program, bool separate_stdin) {
  fflush(stdout);
  TavrenProcess child(program, {}, separate_stdin);
  return result_of_reading_on(child);
}

std::string sum_line(const std::string& input, const std::string& terminal_mode) {
  Checksum sum;
  sum.add(input.data(), input.size());
  return std::to_string(input.size()) + " " + std::to_string(sum.value()) + " " + terminal_mode;
}

std::string next_line(TavrenProcess& child) {
  std::string line;
  child.read_line(line, patient_deadline(), "");
  return line;
}

pid_t announced_pid(TavrenProcess& child) { return static_cast<pid_t>(std::stol(next_line(child))); }

std::string next_bytes(TavrenProcess& child, size_t count) {
  std::string bytes;
  while (bytes.size() < count) bytes += static_cast<char>(child.read_byte(patient_deadline()));
  return bytes;
}

std::string all_output(TavrenProcess& child) {
  std::string output;
  try {
    for (;;) output += static_cast<char>(child.read_byte(patient_deadline()));
  } catch (const TavrenError& error) {
    if (error.get_ecode() != TAVREN_E_PROGRAM_EXITED) throw;
  }
  return output;
}

std::string all_lines(TavrenProcess& child) {
  std::string output;
  std::string line;
  while (result_of([&] { line = next_line(child); }) == "done") output += line + '\n';
  return output + all_output(child);
}

std::string result_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const TavrenTimeout&) {
    return "TavrenTimeout";
  } catch (const TavrenOperationCancelled&) {
    return "TavrenOperationCancelled";
  } catch (const TavrenError& error) {
    return text_of(error);
  }
  return "done";
}

std::string result_of_reading_on(TavrenProcess& child) {
  return result_of([&child] { child.read_until_line_starts_with("", patient_deadline()); });
}

std::string result_of_sending(TavrenProcess& child, const std::string& data, int timeout) {
  return result_of([&] { child.send(data, timeout); });
}

std::string result_of_send_eof(TavrenProcess& child, int timeout) {
  return result_of([&] { child.send_eof(timeout); });
}

void read_a_byte(TavrenProcess& child, long deadline) { child.read_byte(deadline); }

void read_a_line(TavrenProcess& child, long deadline) {
  std::string line;
  child.read_line(line, deadline, "end");
}

void expect_the_end(TavrenProcess& child, long deadline) {
  std::list<std::string> lines;
  child.expect("end", lines, deadline);
}

void skip_to_the_end(TavrenProcess& child, long deadline) { child.read_until_line_starts_with("end", deadline); }

std::string result_of_reading(Reading read, TavrenProcess& child, long deadline) {
  return result_of([&] { read(child, deadline); });
}
