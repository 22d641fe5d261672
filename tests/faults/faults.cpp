/*
 * Each function here stands before the C library's under the symbol that its declaration names.
 */
#include "faults/faults.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <rpc/rpc.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <new>

#include "support/real_function.h"

extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);

namespace {

constexpr int most_functions = 100;

struct Count {
  const char* function;
  long calls;
} counts[most_functions];

bool armed = false;
const faults::Fault* chosen = nullptr;
long chosen_call = 0;
bool injected = false;

/* Counts a call. Returns the fault that it meets, NULL for none. Allocates nothing. */
const faults::Fault* meet(const char* function) {
  if (!armed) return nullptr;
  Count* count = counts;
  while (count->function != nullptr && strcmp(count->function, function) != 0) ++count;
  count->function = function;
  ++count->calls;
  if (chosen == nullptr || injected || strcmp(chosen->function, function) != 0 || count->calls != chosen_call) {
    return nullptr;
  }
  injected = true;
  errno = chosen->error;
  return chosen;
}

bool is_short(const faults::Fault* fault) { return strcmp(fault->how, "is short") == 0; }

}  // namespace

#define SYMBOL(name) __asm__(name) __attribute__((visibility("default"), used))

/* RESULT NAME(PARAMETERS) in the place of SYMBOL: FAILURE when it is to fail, and otherwise the real one's result. */
#define FAILS(result, symbol, name, failure, parameters, arguments)              \
  extern "C" result name parameters SYMBOL(symbol);                              \
  extern "C" result name parameters {                                            \
    if (meet(symbol) != nullptr) return failure;                                 \
    static result(*const function) parameters = real<result parameters>(symbol); \
    return function arguments;                                                   \
  }

FAILS(int, "access", faulty_access, -1, (const char* path, int mode), (path, mode))
FAILS(int, "clock_gettime", faulty_clock_gettime, -1, (clockid_t clock, timespec* now), (clock, now))
FAILS(DIR*, "opendir", faulty_opendir, nullptr, (const char* path), (path))
FAILS(dirent*, "readdir64", faulty_readdir, nullptr, (DIR * directory), (directory))
FAILS(int, "dup2", faulty_dup2, -1, (int from, int to), (from, to))
FAILS(FILE*, "fdopen", faulty_fdopen, nullptr, (int fd, const char* mode), (fd, mode))
FAILS(int, "fflush", faulty_fflush, EOF, (FILE * file), (file))
FAILS(char*, "fgets", faulty_fgets, nullptr, (char* line, int size, FILE* file), (line, size, file))
FAILS(int, "fputs", faulty_fputs, EOF, (const char* text, FILE* file), (text, file))
FAILS(int, "forkpty", faulty_forkpty, -1, (int* fd, char* name, const termios* t, const winsize* w), (fd, name, t, w))
FAILS(ssize_t, "__getdelim", faulty_getdelim, -1, (char** line, size_t* size, int end, FILE* file),
      (line, size, end, file))
FAILS(int, "fstat64", faulty_fstat, -1, (int fd, struct stat64* status), (fd, status))
FAILS(int, "kill", faulty_kill, -1, (pid_t pid, int number), (pid, number))
FAILS(int, "lockf64", faulty_lockf, -1, (int fd, int command, off64_t size), (fd, command, size))
FAILS(off64_t, "lseek64", faulty_lseek, -1, (int fd, off64_t offset, int whence), (fd, offset, whence))
FAILS(int, "lstat64", faulty_lstat, -1, (const char* path, struct stat64* status), (path, status))
FAILS(int, "mkdir", faulty_mkdir, -1, (const char* path, mode_t mode), (path, mode))
FAILS(int, "nanosleep", faulty_nanosleep, -1, (const timespec* time, timespec* rest), (time, rest))
FAILS(int, "pipe2", faulty_pipe2, -1, (int* ends, int flags), (ends, flags))
FAILS(int, "poll", faulty_poll, -1, (pollfd * entries, nfds_t count, int timeout), (entries, count, timeout))
FAILS(int, "ptsname_r", faulty_ptsname_r, ENOTTY, (int fd, char* name, size_t size), (fd, name, size))
FAILS(int, "rename", faulty_rename, -1, (const char* from, const char* to), (from, to))
FAILS(int, "rmdir", faulty_rmdir, -1, (const char* path), (path))
FAILS(int, "setsockopt", faulty_setsockopt, -1, (int fd, int level, int name, const void* value, socklen_t size),
      (fd, level, name, value, size))
FAILS(int, "sigtimedwait", faulty_sigtimedwait, -1, (const sigset_t* set, siginfo_t* info, const timespec* time),
      (set, info, time))
FAILS(char*, "strdup", faulty_strdup, nullptr, (const char* text), (text))
FAILS(int, "system", faulty_system, -1, (const char* command), (command))
FAILS(int, "tcgetattr", faulty_tcgetattr, -1, (int fd, termios* settings), (fd, settings))
FAILS(int, "tcsetattr", faulty_tcsetattr, -1, (int fd, int when, const termios* settings), (fd, when, settings))
FAILS(int, "unlink", faulty_unlink, -1, (const char* path), (path))
FAILS(int, "waitid", faulty_waitid, -1, (idtype_t type, id_t id, siginfo_t* info, int options),
      (type, id, info, options))
FAILS(pid_t, "waitpid", faulty_waitpid, -1, (pid_t pid, int* status, int options), (pid, status, options))
FAILS(int, "open_conf_db", faulty_open_conf_db, -1, (), ())
FAILS(CLIENT*, "clnt_create", faulty_clnt_create, nullptr,
      (const char* host, rpcprog_t program, rpcvers_t version, const char* netid), (host, program, version, netid))
FAILS(int, "socket", faulty_socket, -1, (int domain, int type, int protocol), (domain, type, protocol))
FAILS(int, "connect", faulty_connect, -1, (int fd, const sockaddr* address, socklen_t size), (fd, address, size))

/* A descriptor is closed also when close reports an error, and so is a stream. */
extern "C" int faulty_close(int fd) SYMBOL("close");
extern "C" int faulty_close(int fd) {
  const faults::Fault* fault = meet("close");
  const int result = real<int(int)>("close")(fd);
  if (fault == nullptr) return result;
  errno = fault->error;
  return -1;
}

extern "C" int faulty_fclose(FILE* file) SYMBOL("fclose");
extern "C" int faulty_fclose(FILE* file) {
  const faults::Fault* fault = meet("fclose");
  const int result = real<int(FILE*)>("fclose")(file);
  if (fault == nullptr) return result;
  errno = fault->error;
  return EOF;
}

extern "C" int faulty_fprintf(FILE* file, const char* format, ...) SYMBOL("fprintf");
extern "C" int faulty_fprintf(FILE* file, const char* format, ...) {
  if (meet("fprintf") != nullptr) return -1;
  va_list arguments;
  va_start(arguments, format);
  const int result = vfprintf(file, format, arguments);
  va_end(arguments);
  return result;
}

extern "C" int faulty_open(const char* path, int flags, ...) SYMBOL("open64");
extern "C" int faulty_open(const char* path, int flags, ...) {
  if (meet("open64") != nullptr) return -1;
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return real<int(const char*, int, ...)>("open64")(path, flags, mode);
}

extern "C" int faulty_fcntl(int fd, int command, ...) SYMBOL("fcntl64");
extern "C" int faulty_fcntl(int fd, int command, ...) {
  if (meet("fcntl64") != nullptr) return -1;
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return real<int(int, int, ...)>("fcntl64")(fd, command, argument);
}

extern "C" int faulty_ioctl(int fd, unsigned long request, ...) SYMBOL("ioctl");
extern "C" int faulty_ioctl(int fd, unsigned long request, ...) {
  if (meet("ioctl") != nullptr) return -1;
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return real<int(int, unsigned long, ...)>("ioctl")(fd, request, argument);
}

extern "C" ssize_t faulty_read(int fd, void* bytes, size_t size) SYMBOL("read");
extern "C" ssize_t faulty_read(int fd, void* bytes, size_t size) {
  const faults::Fault* fault = meet("read");
  if (fault != nullptr && !is_short(fault)) return -1;
  return real<ssize_t(int, void*, size_t)>("read")(fd, bytes, fault != nullptr && size > 1 ? 1 : size);
}

extern "C" ssize_t faulty_write(int fd, const void* bytes, size_t size) SYMBOL("write");
extern "C" ssize_t faulty_write(int fd, const void* bytes, size_t size) {
  const faults::Fault* fault = meet("write");
  if (fault != nullptr && !is_short(fault)) return -1;
  return real<ssize_t(int, const void*, size_t)>("write")(fd, bytes, fault != nullptr && size > 1 ? 1 : size);
}

extern "C" void* faulty_malloc(size_t size) SYMBOL("malloc");
extern "C" void* faulty_malloc(size_t size) { return meet("malloc") != nullptr ? nullptr : __libc_malloc(size); }

extern "C" void* faulty_calloc(size_t count, size_t size) SYMBOL("calloc");
extern "C" void* faulty_calloc(size_t count, size_t size) {
  return meet("malloc") != nullptr ? nullptr : __libc_calloc(count, size);
}

extern "C" void* faulty_realloc(void* object, size_t size) SYMBOL("realloc");
extern "C" void* faulty_realloc(void* object, size_t size) {
  return meet("malloc") != nullptr ? nullptr : __libc_realloc(object, size);
}

/* Fails as in a program without a new-handler, which throws at once, or runs out, so that the library's handler runs.
 */
void* operator new(size_t size) {
  const faults::Fault* fault = meet("operator new");
  if (fault != nullptr && strcmp(fault->how, "runs out") == 0) {
    const std::new_handler handler = std::get_new_handler();
    if (handler != nullptr) handler();
  }
  void* const object = fault != nullptr ? nullptr : __libc_malloc(size == 0 ? 1 : size);
  if (object == nullptr) throw std::bad_alloc();
  return object;
}
void operator delete(void* object) noexcept { free(object); }
void operator delete(void* object, size_t) noexcept { free(object); }

namespace faults {

const std::vector<Fault> all = {
    {"__getdelim", "fails", EIO},
    {"access", "fails", EACCES},
    {"clnt_create", "fails", ECONNREFUSED},
    {"clock_gettime", "fails", EINVAL},
    {"close", "fails", EIO},
    {"connect", "fails", ECONNREFUSED},
    {"dup2", "fails", EBADF},
    {"fclose", "fails", ENOSPC},
    {"fcntl64", "fails", EINVAL},
    {"fdopen", "fails", ENOMEM},
    {"fflush", "fails", ENOSPC},
    {"fgets", "fails", EIO},
    {"forkpty", "fails", EAGAIN},
    {"fprintf", "fails", ENOSPC},
    {"fputs", "fails", ENOSPC},
    {"fstat64", "fails", EIO},
    {"ioctl", "fails", EIO},
    {"kill", "fails", EPERM},
    {"lockf64", "fails", ENOLCK},
    {"lockf64", "is taken", EAGAIN},
    {"lseek64", "fails", ESPIPE},
    {"lstat64", "fails", EIO},
    {"malloc", "fails", ENOMEM},
    {"mkdir", "fails", EACCES},
    {"nanosleep", "is interrupted", EINTR},
    {"open64", "fails", EMFILE},
    {"open_conf_db", "fails", EIO},
    {"opendir", "fails", EMFILE},
    {"operator new", "fails", ENOMEM},
    {"operator new", "runs out", ENOMEM},
    {"pipe2", "fails", EMFILE},
    {"poll", "fails", ENOMEM},
    {"poll", "is interrupted", EINTR},
    {"ptsname_r", "fails", ENOTTY},
    {"read", "fails", EIO},
    {"read", "is interrupted", EINTR},
    {"read", "is short", 0},
    {"readdir64", "fails", EIO},
    {"rename", "fails", EACCES},
    {"rmdir", "fails", EACCES},
    {"setsockopt", "fails", EINVAL},
    {"sigtimedwait", "fails", EAGAIN},
    {"socket", "fails", EMFILE},
    {"strdup", "fails", ENOMEM},
    {"system", "fails", EAGAIN},
    {"tcgetattr", "fails", EIO},
    {"tcsetattr", "fails", EIO},
    {"unlink", "fails", EACCES},
    {"waitid", "fails", ECHILD},
    {"waitpid", "fails", ECHILD},
    {"waitpid", "is interrupted", EINTR},
    {"write", "fails", EIO},
    {"write", "is refused", EAGAIN},
    {"write", "is short", 0},
};

void arm(const Fault* fault, long count) {
  memset(counts, 0, sizeof counts);
  chosen = fault;
  chosen_call = count;
  injected = false;
  armed = true;
}

void disarm() { armed = false; }

bool was_injected() { return injected; }

long calls_of(const std::string& function) {
  for (const Count& count : counts) {
    if (count.function != nullptr && function == count.function) return count.calls;
  }
  return 0;
}

}  // namespace faults
