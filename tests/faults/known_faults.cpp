#include <errno.h>
#include <string.h>

#include "faults/faults.h"

namespace faults {

namespace {

constexpr int no_fault = -1;

Control own_control;
Control* control = &own_control;

/* Where the calls of a function are counted: with the first way in which it fails. */
std::atomic<long>* count_of(const char* function) {
  for (size_t i = 0; i < all.size(); ++i) {
    if (strcmp(all[i].function, function) == 0) return &control->calls[i];
  }
  return nullptr;
}

}  // namespace

const std::vector<Fault> all = {
    {"ZSTD_CCtx_setParameter", "fails", EINVAL},
    {"ZSTD_CCtx_setPledgedSrcSize", "fails", EINVAL},
    {"ZSTD_compressStream2", "fails", ENOMEM},
    {"ZSTD_createCCtx", "fails", ENOMEM},
    {"__getdelim", "fails", EIO},
    {"access", "fails", EACCES},
    {"bind", "fails", EADDRINUSE},
    {"clnt_create", "fails", ECONNREFUSED},
    {"clnt_vc_create", "fails", ECONNREFUSED},
    {"clock_gettime", "fails", EINVAL},
    {"close", "fails", EIO},
    {"connect", "fails", ECONNREFUSED},
    {"dup2", "fails", EBADF},
    {"fchmod", "fails", EPERM},
    {"fclose", "fails", ENOSPC},
    {"fcntl64", "fails", EINVAL},
    {"fdatasync", "fails", EIO},
    {"fdopen", "fails", ENOMEM},
    {"fflush", "fails", ENOSPC},
    {"fgets", "fails", EIO},
    {"fopen64", "fails", EMFILE},
    {"forkpty", "fails", EAGAIN},
    {"fprintf", "fails", ENOSPC},
    {"fputs", "fails", ENOSPC},
    {"fstat64", "fails", EIO},
    {"ftruncate64", "fails", EIO},
    {"getpeername", "fails", ENOTCONN},
    {"getsockname", "fails", ENOBUFS},
    {"glob64", "fails", ENOMEM},
    {"ini_parse_stream", "fails", ENOMEM},
    {"ioctl", "fails", EIO},
    {"kill", "fails", EPERM},
    {"listen", "fails", EADDRINUSE},
    {"lockf64", "fails", ENOLCK},
    {"lockf64", "is taken", EAGAIN},
    {"lseek64", "fails", ESPIPE},
    {"lstat64", "fails", EIO},
    {"malloc", "fails", ENOMEM},
    {"mkdir", "fails", EACCES},
    {"mmap64", "fails", ENOMEM},
    {"nanosleep", "is interrupted", EINTR},
    {"open64", "fails", EMFILE},
    {"open_conf_db", "fails", EIO},
    {"opendir", "fails", EMFILE},
    {"operator new", "fails", ENOMEM},
    {"operator new", "runs out", ENOMEM},
    {"pipe2", "fails", EMFILE},
    {"poll", "fails", ENOMEM},
    {"poll", "is interrupted", EINTR},
    {"pread64", "fails", EIO},
    {"pread64", "is interrupted", EINTR},
    {"pread64", "is short", 0},
    {"pthread_create", "fails", EAGAIN},
    {"ptsname_r", "fails", ENOTTY},
    {"pwrite64", "fails", EIO},
    {"pwrite64", "finds no room", ENOSPC},
    {"pwrite64", "is interrupted", EINTR},
    {"pwrite64", "is short", 0},
    {"read", "fails", EIO},
    {"read", "is interrupted", EINTR},
    {"read", "is short", 0},
    {"readdir64", "fails", EIO},
    {"readlink", "fails", EIO},
    {"recv", "fails", ENOBUFS},
    {"recv", "is interrupted", EINTR},
    {"rename", "fails", EACCES},
    {"rmdir", "fails", EACCES},
    {"send", "fails", ENOBUFS},
    {"setsockopt", "fails", EINVAL},
    {"shutdown", "fails", ENOTCONN},
    {"signalfd", "fails", EMFILE},
    {"sigtimedwait", "fails", EAGAIN},
    {"socket", "fails", EMFILE},
    {"sqlite3_bind_blob64", "fails", ENOMEM},
    {"sqlite3_bind_int64", "fails", ENOMEM},
    {"sqlite3_exec", "fails", EIO},
    {"sqlite3_open_v2", "fails", ENOMEM},
    {"sqlite3_prepare_v3", "fails", ENOMEM},
    {"sqlite3_step", "fails", EIO},
    {"stat64", "fails", EIO},
    {"strdup", "fails", ENOMEM},
    {"svc_reg", "fails", ENOMEM},
    {"svc_sendreply", "fails", EPIPE},
    {"svc_vc_create", "fails", ENOMEM},
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

const Fault* meet(const char* function) {
  if (!control->armed) return nullptr;
  std::atomic<long>* const count = count_of(function);
  if (count == nullptr) return nullptr;
  const long calls = ++*count;
  if (control->chosen == no_fault || control->injected) return nullptr;
  const Fault& chosen = all[static_cast<size_t>(control->chosen)];
  if (strcmp(chosen.function, function) != 0 || calls != control->chosen_call) return nullptr;
  control->injected = true;
  errno = chosen.error;
  return &chosen;
}

void arm(const Fault* fault, long count) {
  for (std::atomic<long>& calls : control->calls) calls = 0;
  control->chosen = fault == nullptr ? no_fault : static_cast<int>(fault - all.data());
  control->chosen_call = count;
  control->injected = false;
  control->armed = true;
}

void disarm() { control->armed = false; }

bool is_armed() { return control->armed; }

bool was_injected() { return control->injected; }

long calls_of(const std::string& function) {
  const std::atomic<long>* const count = count_of(function.c_str());
  return count == nullptr ? 0 : count->load();
}

void use(Control* shared) { control = shared; }

}  // namespace faults
