/* What went wrong: numbered error lines under a time stamp, printed for people and serialised for the daemon. */
#ifndef TAVREN_ERROR_H
#define TAVREN_ERROR_H

#include <stdint.h>
#include <time.h>

#include <istream>
#include <list>
#include <ostream>
#include <string>

#include "tavren_api.h"
#include "tavren_constants.h"

/*
 * The error codes. The numbering is part of the daemon interface and keeps its gap at 18 and 19. The words behind a
 * code name the line's arguments.
 */
typedef enum tavren_error_code_t : int32_t {
  TAVREN_E_NONE = 0,                      /* no error; the code of an error without lines */
  TAVREN_E_CHASSIS_CONFLICT = 1,          /* archive directory */
  TAVREN_E_CREATE_REMOTE_FILE = 2,        /* remote file name */
  TAVREN_E_EXPECTED_OUTPUT = 3,           /* the text that was expected */
  TAVREN_E_SSH_START = 4,                 /* host */
  TAVREN_E_FILE_OPEN = 5,                 /* file name, error number */
  TAVREN_E_FILE_READ = 6,                 /* file name, error number */
  TAVREN_E_HOST_AUTH = 7,                 /* host */
  TAVREN_E_HOST_KEY_MISMATCH = 8,         /* none */
  TAVREN_E_HOST_KEY_TOO_LARGE = 9,        /* size in bytes */
  TAVREN_E_INCORRECT_OUTPUT = 10,         /* command, number of lines */
  TAVREN_E_SHELL_STATUS = 11,             /* the text read for the exit status */
  TAVREN_E_OUTPUT = 12,                   /* output text */
  TAVREN_E_PROGRAM_EXITED = 13,           /* program */
  TAVREN_E_COMMAND_FAILED = 14,           /* command, exit status */
  TAVREN_E_COMMAND_OUTPUT = 15,           /* output text */
  TAVREN_E_COMMAND_EXCESSIVE_OUTPUT = 16, /* command */
  TAVREN_E_COMMAND_TIMEOUT = 17,          /* command */
  TAVREN_E_SHELL_START_TIMEOUT = 20,      /* host */
  TAVREN_E_CONNECT_TIMEOUT = 21,          /* host */
  TAVREN_E_SSH_FAILED = 22,               /* the text that the secure shell printed */
  TAVREN_E_LOGIN_DENIED = 23,             /* none */
  TAVREN_E_SYSCALL = 24,                  /* call name, error number */
  TAVREN_E_EXCESSIVE_OUTPUT = 25,         /* program, number of bytes */
} tavren_error_code_t;

/*
 * One failure: a list of lines, the most general statement first. It is thrown by value; callers add a more general
 * first line and throw it on.
 *
 * It owns its lines. It takes no lock: one thread uses it at a time. Memory exhaustion throws std::bad_alloc; a line
 * that could not be added is not there, and everything else is as it was.
 */
class TAVREN_EXPORT TavrenError {
 public:
  /* One line: a code and its arguments. */
  struct TAVREN_EXPORT error_line_t {
    tavren_error_code_t code = TAVREN_E_NONE; /* or one that only a newer library knows */
    std::string* args = nullptr;              /* owned array of num_args strings, none when there are no arguments */
    int32_t num_args = 0;                     /* at most 2, but what was read has what its text says */

    error_line_t() = default;
    ~error_line_t();
    error_line_t(const error_line_t&) = delete;
    error_line_t& operator=(const error_line_t&) = delete;
  };

  /* Makes an error without lines, stamped with the current time. */
  TavrenError();

  /* Makes an error of one line (see add_line), stamped with the current time. */
  TavrenError(tavren_error_code_t code, const std::string& arg1, const std::string& arg2);

  /* Copies time and lines. */
  TavrenError(const TavrenError& other);

  /* Reads the serialised form; see deserialize. */
  explicit TavrenError(std::istream& in);

  /* Releases the lines. */
  ~TavrenError();

  /* Copies time and lines. Only into an object without lines: old ones deliberately stay listed, though released. */
  TavrenError& operator=(const TavrenError& other);

  /* Releases the lines and, deliberately, leaves them listed: only for an object that has none or is about to go. */
  void clear();

  /* Adds a line at the end. Empty arguments at the end are dropped; NUL bytes are escaped. */
  void add_line(tavren_error_code_t code, const std::string& arg1, const std::string& arg2);

  /* Adds a line at the front: wraps a detailed error in a more general statement. */
  void add_first_line(tavren_error_code_t code, const std::string& arg1, const std::string& arg2);

  /* Returns the code of the first line, 0 when there are no lines. */
  tavren_error_code_t get_ecode() const;

  /*
   * Writes the time as local time on a line of its own, then the lines. A time that the C library cannot break down, or
   * whose year has more than eight characters, has no such line.
   */
  void print(std::ostream& os) const;

  /* Writes each line behind two blanks, a hyphen and a blank. */
  void print_body(std::ostream& os) const;

  /* Writes the serialised form: numbers in decimal, every item ended by a NUL byte. */
  void serialize(std::ostream& os) const;

  /* Reads what serialize writes into an object without lines. A malformed text is a failed assertion. */
  void deserialize(std::istream& in);

  /* Returns a new line, owned by the caller; arguments as in add_line. */
  static error_line_t* new_error_line(tavren_error_code_t code, const std::string& arg1, const std::string& arg2);

  /* Returns a deep copy of line, owned by the caller. */
  static error_line_t* duplicate_line(const error_line_t* line);

  /* Returns a line read from its serialised form, owned by the caller. A malformed text is a failed assertion. */
  static error_line_t* deserialize_line(std::istream& in);

  /* Writes one line of the printed form; at most 1023 bytes of the message survive. */
  static void print_line(const error_line_t* line, std::ostream& os);

  /* Returns the translated message format of code, or NULL when it has none; the text belongs to the library. */
  static const char* get_format_string(tavren_error_code_t code);

  /*
   * Appends to out the errors of a counted buffer, newly allocated, the caller's. A buffer that ends where an item
   * should begin, or has no number where one should be, is a std::ios_base::failure, out then holding the errors before
   * it; a wrong tag or separator, or more than white space behind the last error, are a failed assertion. A buffer that
   * was cut inside its last argument passes for a whole one.
   */
  static void tavren_bytes_to_errors(tavren_bytes_t& bytes, std::list<TavrenError*>& out);

  time_t time;                    /* seconds since the epoch */
  std::list<error_line_t*> lines; /* owned */
};

/* Throws a TavrenError with TAVREN_E_SYSCALL for the named call; an error of -1 stands for the current errno. */
[[noreturn]] TAVREN_EXPORT void tavren_throw_syscall_error(std::string call, int error);

#endif
