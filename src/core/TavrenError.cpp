#include "TavrenError.h"

#include <errno.h>
#include <stdio.h>

#include <algorithm>
#include <locale>
#include <memory>
#include <sstream>
#include <utility>
#include <vector>

#include "core/assertion.h"
#include "core/catalogue.h"

namespace {

using ErrorLine = std::unique_ptr<TavrenError::error_line_t>;

struct CodeFormat {
  tavren_error_code_t code;
  const char* format;
};

constexpr CodeFormat formats[] = {
    {TAVREN_E_CHASSIS_CONFLICT,
     TAVREN_TEXT("Another QRV chassis is already using the specified archive directory (%s)")},
    {TAVREN_E_CREATE_REMOTE_FILE, TAVREN_TEXT("Unable to create file %s on remote host")},
    {TAVREN_E_EXPECTED_OUTPUT, TAVREN_TEXT("Expected output: \"%s\"")},
    {TAVREN_E_SSH_START, TAVREN_TEXT("Failed to start secure shell session on %s")},
    {TAVREN_E_FILE_OPEN, TAVREN_TEXT("Failed to open file %s, ecode=%s")},
    {TAVREN_E_FILE_READ, TAVREN_TEXT("Failed to read from file %s, ecode=%s")},
    {TAVREN_E_HOST_AUTH, TAVREN_TEXT("Failed to authenticate the remote host (%s)")},
    {TAVREN_E_HOST_KEY_MISMATCH,
     TAVREN_TEXT("The public host key setting does not match the remote host's private key")},
    {TAVREN_E_HOST_KEY_TOO_LARGE, TAVREN_TEXT("Host key is too large (%s bytes)")},
    {TAVREN_E_INCORRECT_OUTPUT, TAVREN_TEXT("Remote command \"%s\" produced incorrect output: %s line(s) of output")},
    {TAVREN_E_SHELL_STATUS, TAVREN_TEXT("Remote shell error: $? evaluated to \"%s\"")},
    {TAVREN_E_OUTPUT, TAVREN_TEXT("Output: \"%s\"")},
    {TAVREN_E_PROGRAM_EXITED, TAVREN_TEXT("Program exited unexpectedly: %s")},
    {TAVREN_E_COMMAND_FAILED, TAVREN_TEXT("Remote command \"%s\" failed with error code %s")},
    {TAVREN_E_COMMAND_OUTPUT, TAVREN_TEXT("Command output: \"%s\"")},
    {TAVREN_E_COMMAND_EXCESSIVE_OUTPUT, TAVREN_TEXT("Remote command \"%s\" produced excessive output")},
    {TAVREN_E_COMMAND_TIMEOUT, TAVREN_TEXT("Timeout occurred while running remote command: \"%s\"")},
    {TAVREN_E_SHELL_START_TIMEOUT, TAVREN_TEXT("Timeout occurred while waiting for shell to start on %s")},
    {TAVREN_E_CONNECT_TIMEOUT, TAVREN_TEXT("Timeout occurred while connecting to %s")},
    {TAVREN_E_SSH_FAILED, TAVREN_TEXT("Secure shell failed: \"%s\"")},
    {TAVREN_E_LOGIN_DENIED, TAVREN_TEXT("Secure shell login failed: permission denied")},
    {TAVREN_E_SYSCALL, TAVREN_TEXT("System call \"%s\" failed with error code %s")},
    {TAVREN_E_EXCESSIVE_OUTPUT, TAVREN_TEXT("%s produced excessive output (%s bytes)")},
};

/*
 * Replaces each pattern in s, because the serialised form ends every argument with a NUL byte. The span replaced at
 * position p is deliberately p bytes longer than the pattern (cut at the end of s): the daemon's stored errors were
 * written that way, and both sides must agree byte for byte.
 */
void replace_all(std::string& s, const std::string& pattern, const std::string& replacement) {
  for (size_t p = 0; (p = s.find(pattern, p)) != std::string::npos; p += replacement.size()) {
    s.replace(p, pattern.size() + p, replacement);
  }
}

std::string escape_nul_bytes(std::string argument) {
  replace_all(argument, std::string(1, '\0'), "\\0");
  return argument;
}

void set_arguments(TavrenError::error_line_t& line, std::vector<std::string> arguments) {
  if (!arguments.empty()) line.args = new std::string[arguments.size()];
  line.num_args = static_cast<int32_t>(arguments.size());
  std::move(arguments.begin(), arguments.end(), line.args);
}

void append(std::list<TavrenError::error_line_t*>& lines, ErrorLine line) {
  lines.push_back(nullptr);
  lines.back() = line.release();
}

/* Every item of the serialised form ends with one NUL byte. */
void write_item(std::ostream& os, const std::string& item) {
  os.write(item.data(), static_cast<std::streamsize>(item.size()));
  os.put('\0');
}

void read_separator(std::istream& in) {
  char sep = ' ';
  in >> sep;
  TAVREN_ASSERT("TavrenError", sep == '\0');
}

}  // namespace

TavrenError::error_line_t::~error_line_t() { delete[] args; }

TavrenError::TavrenError() : time(::time(nullptr)) {}

/* The constructors delegate, so that the destructor releases the lines made so far when a later one fails. */
TavrenError::TavrenError(tavren_error_code_t code, const std::string& arg1, const std::string& arg2) : TavrenError() {
  add_line(code, arg1, arg2);
}

TavrenError::TavrenError(const TavrenError& other) : TavrenError() { *this = other; }

TavrenError::TavrenError(std::istream& in) : TavrenError() { deserialize(in); }

TavrenError::~TavrenError() { clear(); }

TavrenError& TavrenError::operator=(const TavrenError& other) {
  time = other.time;
  clear();
  for (const error_line_t* line : other.lines) append(lines, ErrorLine(duplicate_line(line)));
  return *this;
}

void TavrenError::clear() {
  for (error_line_t* line : lines) delete line;
}

void TavrenError::add_line(tavren_error_code_t code, const std::string& arg1, const std::string& arg2) {
  append(lines, ErrorLine(new_error_line(code, arg1, arg2)));
}

void TavrenError::add_first_line(tavren_error_code_t code, const std::string& arg1, const std::string& arg2) {
  ErrorLine line(new_error_line(code, arg1, arg2));
  lines.push_front(nullptr);
  lines.front() = line.release();
}

tavren_error_code_t TavrenError::get_ecode() const { return lines.empty() ? TAVREN_E_NONE : lines.front()->code; }

void TavrenError::print(std::ostream& os) const {
  char buffer[25];
  struct tm local {};
  if (localtime_r(&time, &local) != nullptr) {
    const size_t length = strftime(buffer, sizeof buffer, "%Y/%m/%d %H:%M:%S\n", &local);
    os.write(buffer, static_cast<std::streamsize>(length));
  }
  print_body(os);
}

void TavrenError::print_body(std::ostream& os) const {
  for (const error_line_t* line : lines) print_line(line, os);
}

/* Numbers are written as text of our own, because a stream may carry a locale that groups digits, or other flags. */
void TavrenError::serialize(std::ostream& os) const {
  write_item(os, "TavrenError");
  write_item(os, std::to_string(time));
  write_item(os, std::to_string(lines.size()));
  for (const error_line_t* line : lines) {
    write_item(os, "error_line_t");
    write_item(os, std::to_string(line->code));
    write_item(os, std::to_string(line->num_args));
    for (int32_t i = 0; i < line->num_args; ++i) write_item(os, line->args[i]);
  }
}

void TavrenError::deserialize(std::istream& in) {
  clear();
  std::string s;
  std::getline(in, s, '\0');
  TAVREN_ASSERT("TavrenError", s == "TavrenError");
  in >> time;
  read_separator(in);
  int32_t count = 0;
  in >> count;
  read_separator(in);
  for (int32_t i = 0; i < count; ++i) append(lines, ErrorLine(deserialize_line(in)));
}

TavrenError::error_line_t* TavrenError::new_error_line(tavren_error_code_t code, const std::string& arg1,
                                                       const std::string& arg2) {
  std::vector<std::string> arguments;
  if (!arg2.empty()) {
    arguments = {escape_nul_bytes(arg1), escape_nul_bytes(arg2)};
  } else if (!arg1.empty()) {
    arguments = {escape_nul_bytes(arg1)};
  }
  auto line = std::make_unique<error_line_t>();
  line->code = code;
  set_arguments(*line, std::move(arguments));
  return line.release();
}

TavrenError::error_line_t* TavrenError::duplicate_line(const error_line_t* line) {
  auto copy = std::make_unique<error_line_t>();
  copy->code = line->code;
  set_arguments(*copy, std::vector<std::string>(line->args, line->args + line->num_args));
  return copy.release();
}

TavrenError::error_line_t* TavrenError::deserialize_line(std::istream& in) {
  TAVREN_ASSERT("TavrenError", in.good());
  std::string s;
  std::getline(in, s, '\0');
  TAVREN_ASSERT("TavrenError", s == "error_line_t");
  auto line = std::make_unique<error_line_t>();
  int32_t code = 0;
  in >> code;
  read_separator(in);
  line->code = static_cast<tavren_error_code_t>(code);
  int32_t num_args = 0;
  in >> num_args;
  read_separator(in);

  /* Read one by one: a count that the text does not bear out must not decide how much memory is asked for. */
  std::vector<std::string> arguments;
  for (int32_t i = 0; i < num_args; ++i) {
    std::getline(in, s, '\0');
    /* The text may end with its last argument: a stream at its end is not good, and yet it was read. */
    if (in.fail()) _tavren_assert("in.good()", "TavrenError", __LINE__);
    arguments.push_back(s);
  }
  set_arguments(*line, std::move(arguments));
  return line.release();
}

void TavrenError::print_line(const error_line_t* line, std::ostream& os) {
  const char* arg1 = line->num_args > 0 ? line->args[0].c_str() : "";
  const char* arg2 = line->num_args > 1 ? line->args[1].c_str() : "";
  char message[1024];
  const char* format = get_format_string(line->code);
  if (format != nullptr) {
    snprintf(message, sizeof message, format, arg1, arg2);
  } else {
    snprintf(message, sizeof message, translate("Unknown error: %d, %s, %s"), static_cast<int>(line->code), arg1, arg2);
  }
  os << "  - " << message << '\n';
}

const char* TavrenError::get_format_string(tavren_error_code_t code) {
  for (const CodeFormat& entry : formats) {
    if (entry.code == code) return translate(entry.format);
  }
  return nullptr;
}

void TavrenError::tavren_bytes_to_errors(tavren_bytes_t& bytes, std::list<TavrenError*>& out) {
  std::istringstream in(std::string(bytes.data.data_val, bytes.data.data_len));
  in.imbue(std::locale::classic());
  in.exceptions(std::ios_base::badbit | std::ios_base::failbit);
  int32_t count = 0;
  char c = ' ';
  in >> count >> c;
  TAVREN_ASSERT("TavrenError", c == '\0');
  for (int32_t i = 0; i < count; ++i) {
    auto error = std::make_unique<TavrenError>(in);
    out.push_back(nullptr);
    out.back() = error.release();
  }
  in.exceptions(std::ios_base::badbit);
  in >> c;
  TAVREN_ASSERT("TavrenError", in.eof());
}

// cppcheck-suppress passedByValue
// NOLINTNEXTLINE(performance-unnecessary-value-param): part of the interface as it has always been
void tavren_throw_syscall_error(std::string call, int error) {
  if (error == -1) error = errno;
  throw TavrenError(TAVREN_E_SYSCALL, call, std::to_string(error));
}
