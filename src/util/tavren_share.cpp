#include "tavren_share.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <optional>

#include "core/assertion.h"
#include "core/catalogue.h"
#include "core/standard_streams.h"
#include "tavren_assert.h"
#include "tavren_basic.h"
#include "util/refusal.h"

namespace {

constexpr size_t path_size = 4096;
constexpr size_t lock_path_size = path_size + sizeof "/.lock";

char tmp_dir_buffer[path_size];
const char* tmp_dir = nullptr;
int lock_fd = -1;

bool starts_with_hyphen(const char* s) { return s[0] == '-'; }

/* The hidden input's terminal settings, put back when the line has been read. */
class EchoOff {
 public:
  EchoOff() {
    const int rc = tcgetattr(STDIN_FILENO, &saved);
    TAVREN_ASSERT("tavren_share", rc == 0);
    termios hidden = saved;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    /* A signal may interrupt the wait for pending output, and the password must not show for that. */
    while (tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden) == -1 && errno == EINTR) {
    }
  }
  ~EchoOff() { tcsetattr(STDIN_FILENO, TCSANOW, &saved); }
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;

 private:
  termios saved{};
};

/*
 * Returns the next character. Neither a signal that the program handles ends the input, nor that there is none yet: who
 * shares a terminal may have made it non-blocking for all.
 */
int next_character() {
  for (;;) {
    const int c = getchar();
    if (c != EOF || ferror(stdin) == 0 || (errno != EINTR && errno != EAGAIN)) return c;
    if (errno == EAGAIN) {
      pollfd input{STDIN_FILENO, POLLIN, 0};
      poll(&input, 1, -1);
    }
    clearerr(stdin);
  }
}

int read_line_of_input(char* buffer, int size) {
  /* An error of earlier reading says nothing about this one. The end of the input does, and no error comes behind it.
   */
  if (ferror(stdin) != 0) clearerr(stdin);
  int count = 0;
  for (int c = 0; (c = next_character()) != EOF && c != '\n';) {
    if (count < size - 1) buffer[count] = static_cast<char>(c);
    if (count < INT_MAX) ++count;
  }
  return count;
}

/*
 * Makes the directory unless it is there. Everybody may write where it lies, so a symbolic link in its place may lead
 * to a directory whose files are nobody's to remove.
 */
bool make_directory(const char* path) {
  if (mkdir(path, 0777) == 0) return true;
  if (errno != EEXIST) return false;
  struct stat status {};
  if (lstat(path, &status) == 0 && S_ISLNK(status.st_mode)) {
    errno = ELOOP;
    return false;
  }
  return true;
}

/*
 * Makes name's directory and opens its lock file, whose paths it writes out. Returns the descriptor, or -1 with the
 * reason in message.
 */
int open_lock_file(const char* name, char (&directory)[path_size], char (&lock_path)[lock_path_size], char* message) {
  const int length = snprintf(directory, sizeof directory, "%s/%s.libtavren", tavren_get_tmp_root(), name);
  snprintf(lock_path, sizeof lock_path, "%s/.lock", directory);
  /* A path that was cut would be another directory's. */
  if (length < 0 || static_cast<size_t>(length) >= sizeof directory) {
    return refuse(message, translate("Failed to create directory %s, errno=%d"), directory, ENAMETOOLONG);
  }
  if (!make_directory(directory)) {
    return refuse(message, translate("Failed to create directory %s, errno=%d"), directory, errno);
  }
  /* Everybody may write here, too: no lock is looked for behind a link, nor waited for behind a named pipe. */
  constexpr int flags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  const int fd = keep_off_standard_streams(open(lock_path, flags, 0666));
  return fd != -1 ? fd : refuse(message, translate("Failed to open %s, errno=%d."), lock_path, errno);
}

/*
 * Returns whether the file open at fd is still the one at path: an instance that ended between our opening and our
 * locking has taken it away, and the next one would lock another file of that name.
 */
bool is_still_there(int fd, const char* path) {
  struct stat locked {};
  struct stat present {};
  return fstat(fd, &locked) == 0 && lstat(path, &present) == 0 && locked.st_dev == present.st_dev &&
         locked.st_ino == present.st_ino;
}

bool lock_file(int fd, const char* path, char* message) {
  if (lockf(fd, F_TLOCK, 0) == 0) return true;
  if (errno == EAGAIN) {
    /* The descriptor is deliberately left open: a second instance has nothing to do but end, which closes it. */
    refuse(message, translate("An instance of %s is already running."), tavren_get_program_name());
    return false;
  }
  refuse(message, translate("Failed to lock %s, errno=%d."), path, errno);
  close(fd);
  return false;
}

}  // namespace

int tavren_parse_target(char* spec, char** user, char** host, char** dir) {
  char* rest = nullptr;
  *user = strtok_r(spec, "@", &rest);
  if (*user == nullptr) return -1;
  *host = strtok_r(nullptr, ":", &rest);
  if (*host == nullptr) return -1;
  *dir = strtok_r(nullptr, "", &rest);
  if (*dir == nullptr) return -1;

  const size_t length = strlen(*dir);
  if (length > 1 && (*dir)[length - 1] == '/') (*dir)[length - 1] = '\0';
  TAVREN_ASSERT("tavren_share", **user != '\0' && **host != '\0' && **dir != '\0');
  return 0;
}

int tavren_process_target(char* spec, char** user, char** host, char** directory, char* message) {
  if (tavren_parse_target(spec, user, host, directory) != 0) {
    return refuse(message, "%s", translate("Target specification must have the form: user@host:directory."));
  }
  if (strlen(*user) > TAVREN_MAX_USER_LENGTH) {
    return refuse(message, translate("The user name is more than %d bytes long."), TAVREN_MAX_USER_LENGTH);
  }
  if (strlen(*host) > TAVREN_MAX_HOST_LENGTH) {
    return refuse(message, translate("The host name is more than %d bytes long."), TAVREN_MAX_HOST_LENGTH);
  }
  if (strlen(*directory) > TAVREN_MAX_DIRECTORY_LENGTH) {
    return refuse(message, translate("The specified directory name is more than %d bytes long."),
                  TAVREN_MAX_DIRECTORY_LENGTH);
  }
  /* A part that begins with a hyphen would be an option of ssh or scp; the far shell would expand a tilde. */
  if (starts_with_hyphen(*user)) {
    return refuse(message, "%s", translate("The ssh username may not start with '-'."));
  }
  if (starts_with_hyphen(*host)) {
    return refuse(message, "%s", translate("The host name may not start with '-'."));
  }
  if (starts_with_hyphen(*directory) || **directory == '~') {
    return refuse(message, "%s", translate("The archive directory name may not start with '-' or '~'."));
  }
  return 0;
}

int tavren_yes_or_no(const char* prompt, int assume_yes, int assume_no) {
  if (assume_yes != 0) {
    printf("%syes\n", prompt);
    return 1;
  }
  if (assume_no != 0) {
    printf("%sno\n", prompt);
    return 0;
  }
  for (;;) {
    char answer[20];
    tavren_read_input(prompt, answer, sizeof answer, 0);
    if (strcasecmp(answer, "yes") == 0 || strcasecmp(answer, "y") == 0) return 1;
    if (strcasecmp(answer, "no") == 0 || strcasecmp(answer, "n") == 0) return 0;
    /* An input that cannot be read will not become readable: it counts as its end. */
    if (feof(stdin) != 0 || ferror(stdin) != 0) return -1;
    fputs(translate("Please enter 'yes', 'no', 'y', or 'n'.\n"), stderr);
  }
}

int tavren_read_input(const char* prompt, char* buffer, int size, int hide) {
  const bool terminal = isatty(STDIN_FILENO) != 0;
  std::optional<EchoOff> echo_off;
  if (hide != 0 && terminal) echo_off.emplace();

  fputs(prompt, stdout);
  fflush(stdout);
  if (size > 0) memset(buffer, 0, static_cast<size_t>(size));
  const int count = read_line_of_input(buffer, size);
  /* Nobody's Enter has been echoed, so the next output would follow the prompt on its line. */
  if (hide != 0 || !terminal) putchar('\n');
  return count;
}

int tavren_setup_tmp_dir(const char* name, char* message) {
  char directory[path_size];
  char lock_path[lock_path_size];
  int fd = -1;
  for (;;) {
    const mode_t old_umask = umask(0); /* before the root, which this may make */
    fd = open_lock_file(name, directory, lock_path, message);
    umask(old_umask);
    if (fd == -1 || !lock_file(fd, lock_path, message)) return -1;
    if (is_still_there(fd, lock_path)) break;
    close(fd);
  }
  tavren_delete_all_files(directory);
  memcpy(tmp_dir_buffer, directory, sizeof tmp_dir_buffer);
  tmp_dir = tmp_dir_buffer;
  lock_fd = fd;
  return 0;
}

const char* tavren_get_tmp_dir() { return tmp_dir; }

void tavren_cleanup_tmp_dir() {
  if (tmp_dir == nullptr) return;
  char lock_path[lock_path_size];
  snprintf(lock_path, sizeof lock_path, "%s/.lock", tmp_dir);
  tavren_delete_all_files(tmp_dir);
  unlink(lock_path);
  rmdir(tmp_dir);
  tmp_dir = nullptr;
  if (lock_fd != -1) close(lock_fd);
}
