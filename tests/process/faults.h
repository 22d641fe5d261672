#ifndef TESTS_PROCESS_FAULTS_H
#define TESTS_PROCESS_FAULTS_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

/*
 * Lets system calls of this program, the library's included, fail on demand. A program that is linked with faults.cpp
 * defines functions of those names itself, and they come before the C library's.
 *
 * The names are: pipe2, forkpty, tcgetattr, tcsetattr, poll, read, write, dup2, kill, waitpid, nanosleep, and for the
 * calls that do many things F_GETFL, F_SETFL, F_SETFD, F_DUPFD_CLOEXEC, TIOCOUTQ, TIOCGPTPEER and FIONREAD.
 */
class Faulty {
 public:
  static constexpr int every = -1;

  /*
   * While the object lives, that one of the calls of that name (counted from 1) fails. An error number of 0 makes it
   * return 0 without doing anything; TIOCOUTQ then answers 1. One object at a time.
   */
  Faulty(const std::string& call_name, int error_number, int which = 1);

  /* Only counts the calls and records their arguments. */
  explicit Faulty(const std::string& call_name) : Faulty(call_name, 0, 0) {}

  /* Only runs action before that one of the calls. */
  Faulty(const std::string& call_name, int which, std::function<void()> before) : Faulty(call_name, 0, which) {
    action = std::move(before);
  }

  ~Faulty();
  Faulty(const Faulty&) = delete;
  Faulty& operator=(const Faulty&) = delete;

  /*
   * For each call so far: the milliseconds of poll and nanosleep, the signal of kill, the size of read and write, the
   * options of waitpid, when tcsetattr is to take effect; otherwise 0.
   */
  const std::vector<long>& arguments() const { return recorded; }
  size_t calls() const { return recorded.size(); }

 private:
  friend bool strikes(const std::string& name, long argument);

  std::string name;
  int error;
  int call;
  std::vector<long> recorded;
  std::function<void()> action;
};

/*
 * While it lives, forkpty comes back late on one of its two sides: to the parent once its child has exited, or to the
 * child once the object is released.
 */
class LateFork {
 public:
  enum class Side { parent, child };

  explicit LateFork(Side side);
  ~LateFork();
  LateFork(const LateFork&) = delete;
  LateFork& operator=(const LateFork&) = delete;

  void release();

 private:
  friend void come_late(pid_t pid);

  const Side side;
  int gate[2]; /* the child reads until the end of file */
};

#endif
