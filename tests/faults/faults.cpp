/*
 * Each function here stands before the C library's under the symbol that its declaration names.
 */
#include "faults/faults.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <glob.h>
#include <poll.h>
#include <pthread.h>
#include <rpc/rpc.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
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

using faults::meet;

bool is_in(const char* library, void* caller) {
  Dl_info object{};
  return dladdr(caller, &object) != 0 && strstr(object.dli_fname, library) != nullptr;
}

/* The RPC library does not live through its failing: it crashes. */
bool is_out_of_memory(void* caller) {
  return faults::is_armed() && !is_in("/libtirpc.so", caller) && meet("malloc") != nullptr;
}

bool is_short(const faults::Fault* fault) { return strcmp(fault->how, "is short") == 0; }

}  // namespace

#define CALLER __builtin_return_address(0)

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
FAILS(int, "open_conf_db", faulty_open_conf_db, EIO, (int database), (database))
FAILS(CLIENT*, "clnt_create", faulty_clnt_create, nullptr,
      (const char* host, rpcprog_t program, rpcvers_t version, const char* netid), (host, program, version, netid))
FAILS(int, "socket", faulty_socket, -1, (int domain, int type, int protocol), (domain, type, protocol))
FAILS(int, "connect", faulty_connect, -1, (int fd, const sockaddr* address, socklen_t size), (fd, address, size))

FAILS(int, "bind", faulty_bind, -1, (int fd, const sockaddr* address, socklen_t size), (fd, address, size))
FAILS(CLIENT*, "clnt_vc_create", faulty_clnt_vc_create, nullptr,
      (int fd, const netbuf* address, rpcprog_t program, rpcvers_t version, u_int send, u_int receive),
      (fd, address, program, version, send, receive))
FAILS(int, "fchmod", faulty_fchmod, -1, (int fd, mode_t mode), (fd, mode))
FAILS(int, "fdatasync", faulty_fdatasync, -1, (int fd), (fd))
FAILS(FILE*, "fopen64", faulty_fopen, nullptr, (const char* path, const char* mode), (path, mode))
FAILS(int, "ftruncate64", faulty_ftruncate, -1, (int fd, off64_t size), (fd, size))
FAILS(int, "getpeername", faulty_getpeername, -1, (int fd, sockaddr* address, socklen_t* size), (fd, address, size))
FAILS(int, "getsockname", faulty_getsockname, -1, (int fd, sockaddr* address, socklen_t* size), (fd, address, size))
FAILS(int, "glob64", faulty_glob, GLOB_NOSPACE,
      (const char* pattern, int flags, int (*note)(const char*, int), glob64_t* matches),
      (pattern, flags, note, matches))
FAILS(int, "listen", faulty_listen, -1, (int fd, int count), (fd, count))
FAILS(void*, "mmap64", faulty_mmap, MAP_FAILED,
      (void* place, size_t size, int protection, int flags, int fd, off64_t offset),
      (place, size, protection, flags, fd, offset))
FAILS(int, "pthread_create", faulty_pthread_create, EAGAIN,
      (pthread_t * thread, const pthread_attr_t* attributes, void* (*routine)(void*), void* argument),
      (thread, attributes, routine, argument))
FAILS(ssize_t, "readlink", faulty_readlink, -1, (const char* path, char* target, size_t size), (path, target, size))
FAILS(ssize_t, "recv", faulty_recv, -1, (int fd, void* bytes, size_t size, int flags), (fd, bytes, size, flags))
FAILS(ssize_t, "send", faulty_send, -1, (int fd, const void* bytes, size_t size, int flags), (fd, bytes, size, flags))
FAILS(int, "signalfd", faulty_signalfd, -1, (int fd, const sigset_t* set, int flags), (fd, set, flags))
FAILS(int, "shutdown", faulty_shutdown, -1, (int fd, int how), (fd, how))
FAILS(int, "stat64", faulty_stat, -1, (const char* path, struct stat64* status), (path, status))
FAILS(bool_t, "svc_reg", faulty_svc_reg, FALSE,
      (SVCXPRT * transport, rpcprog_t program, rpcvers_t version, void (*dispatch)(svc_req*, SVCXPRT*), void* config),
      (transport, program, version, dispatch, config))
FAILS(bool_t, "svc_sendreply", faulty_svc_sendreply, FALSE, (SVCXPRT * transport, xdrproc_t filter, void* answer),
      (transport, filter, answer))
FAILS(SVCXPRT*, "svc_vc_create", faulty_svc_vc_create, nullptr, (int fd, u_int send, u_int receive),
      (fd, send, receive))

/* What other libraries report in their own numbers. */
constexpr int ini_no_memory = -2;
constexpr int sqlite_no_memory = 7;
constexpr int sqlite_io_error = 10;
constexpr size_t zstd_no_memory = static_cast<size_t>(-64);
constexpr size_t zstd_unsupported = static_cast<size_t>(-40);

FAILS(int, "ini_parse_stream", faulty_ini_parse_stream, ini_no_memory,
      (void* reader, void* stream, void* handler, void* user), (reader, stream, handler, user))
FAILS(int, "sqlite3_open_v2", faulty_sqlite3_open, sqlite_no_memory,
      (const char* path, void** handle, int flags, const char* system), (path, handle, flags, system))
FAILS(int, "sqlite3_exec", faulty_sqlite3_exec, sqlite_io_error,
      (void* handle, const char* sql, void* callback, void* argument, char** message),
      (handle, sql, callback, argument, message))
FAILS(int, "sqlite3_prepare_v3", faulty_sqlite3_prepare, sqlite_no_memory,
      (void* handle, const char* sql, int size, unsigned int flags, void** statement, const char** rest),
      (handle, sql, size, flags, statement, rest))
FAILS(int, "sqlite3_bind_int64", faulty_sqlite3_bind_int, sqlite_no_memory, (void* statement, int place, int64_t value),
      (statement, place, value))
FAILS(int, "sqlite3_bind_blob64", faulty_sqlite3_bind_blob, sqlite_no_memory,
      (void* statement, int place, const void* bytes, uint64_t size, void (*release)(void*)),
      (statement, place, bytes, size, release))
FAILS(void*, "ZSTD_createCCtx", faulty_zstd_create, nullptr, (), ())
FAILS(size_t, "ZSTD_CCtx_setParameter", faulty_zstd_set, zstd_unsupported, (void* context, int parameter, int value),
      (context, parameter, value))
FAILS(size_t, "ZSTD_CCtx_setPledgedSrcSize", faulty_zstd_pledge, zstd_unsupported,
      (void* context, unsigned long long size), (context, size))
FAILS(size_t, "ZSTD_compressStream2", faulty_zstd_compress, zstd_no_memory,
      (void* context, void* output, void* input, int operation), (context, output, input, operation))

/* SQLite's own use of it asks the statement for what came of it, which knows nothing of a step that was not made. */
extern "C" int faulty_sqlite3_step(void* statement) SYMBOL("sqlite3_step");
extern "C" int faulty_sqlite3_step(void* statement) {
  if (faults::is_armed() && !is_in("/libsqlite3.so", CALLER) && meet("sqlite3_step") != nullptr) return sqlite_io_error;
  return real<int(void*)>("sqlite3_step")(statement);
}

/* RESULT NAME(PARAMETER) in the place of SYMBOL: it does its work also when it reports an error. */
#define FAILS_BEHIND_ITS_WORK(result, symbol, name, failure, type) \
  extern "C" result name(type object) SYMBOL(symbol);              \
  extern "C" result name(type object) {                            \
    const faults::Fault* fault = meet(symbol);                     \
    const result done = real<result(type)>(symbol)(object);        \
    if (fault == nullptr) return done;                             \
    errno = fault->error;                                          \
    return failure;                                                \
  }

FAILS_BEHIND_ITS_WORK(int, "close", faulty_close, -1, int)
FAILS_BEHIND_ITS_WORK(int, "fclose", faulty_fclose, EOF, FILE*)

/* The stream remembers it. */
extern "C" char* faulty_fgets(char* line, int size, FILE* file) SYMBOL("fgets");
extern "C" char* faulty_fgets(char* line, int size, FILE* file) {
  if (meet("fgets") != nullptr) {
    file->_flags |= _IO_ERR_SEEN;
    return nullptr;
  }
  return real<char*(char*, int, FILE*)>("fgets")(line, size, file);
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

/* The same for what takes any third argument. */
#define FAILS_WITH_ANY_ARGUMENT(symbol, name, type)                  \
  extern "C" int name(int fd, type request, ...) SYMBOL(symbol);     \
  extern "C" int name(int fd, type request, ...) {                   \
    if (meet(symbol) != nullptr) return -1;                          \
    va_list arguments;                                               \
    va_start(arguments, request);                                    \
    void* const argument = va_arg(arguments, void*);                 \
    va_end(arguments);                                               \
    return real<int(int, type, ...)>(symbol)(fd, request, argument); \
  }

FAILS_WITH_ANY_ARGUMENT("fcntl64", faulty_fcntl, int)
FAILS_WITH_ANY_ARGUMENT("ioctl", faulty_ioctl, unsigned long)

/* The same for what moves bytes: it may also move only one of them. */
#define FAILS_OR_IS_SHORT(symbol, name, parameters, arguments) \
  extern "C" ssize_t name parameters SYMBOL(symbol);           \
  extern "C" ssize_t name parameters {                         \
    const faults::Fault* fault = meet(symbol);                 \
    if (fault != nullptr && !is_short(fault)) return -1;       \
    if (fault != nullptr && size > 1) size = 1;                \
    return real<ssize_t parameters>(symbol) arguments;         \
  }

FAILS_OR_IS_SHORT("read", faulty_read, (int fd, void* bytes, size_t size), (fd, bytes, size))
FAILS_OR_IS_SHORT("write", faulty_write, (int fd, const void* bytes, size_t size), (fd, bytes, size))
FAILS_OR_IS_SHORT("pread64", faulty_pread, (int fd, void* bytes, size_t size, off64_t offset),
                  (fd, bytes, size, offset))
FAILS_OR_IS_SHORT("pwrite64", faulty_pwrite, (int fd, const void* bytes, size_t size, off64_t offset),
                  (fd, bytes, size, offset))

extern "C" void* faulty_malloc(size_t size) SYMBOL("malloc");
extern "C" void* faulty_malloc(size_t size) { return is_out_of_memory(CALLER) ? nullptr : __libc_malloc(size); }

extern "C" void* faulty_calloc(size_t count, size_t size) SYMBOL("calloc");
extern "C" void* faulty_calloc(size_t count, size_t size) {
  return is_out_of_memory(CALLER) ? nullptr : __libc_calloc(count, size);
}

extern "C" void* faulty_realloc(void* object, size_t size) SYMBOL("realloc");
extern "C" void* faulty_realloc(void* object, size_t size) {
  return is_out_of_memory(CALLER) ? nullptr : __libc_realloc(object, size);
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
