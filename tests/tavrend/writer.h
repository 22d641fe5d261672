#ifndef TESTS_TAVREND_WRITER_H
#define TESTS_TAVREND_WRITER_H

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

enum class Rotation { rename, copy_and_truncate };

/*
 * A service that writes a log and rotates it: .1 becomes .2 and so on, none is removed. It writes a line in two parts,
 * so that whoever reads the log may see half of one.
 */
class LogWriter {
 public:
  static constexpr int lines_of_a_file = 200;

  LogWriter(std::string log, Rotation rotation) : path(std::move(log)), way(rotation) { reopen(); }
  ~LogWriter() {
    stop();
    close(fd);
  }
  LogWriter(const LogWriter&) = delete;
  LogWriter& operator=(const LogWriter&) = delete;

  void write_line(const std::string& line) {
    const size_t half = line.size() / 2;
    put(line.substr(0, half));
    put(line.substr(half));
    all += line;
  }

  void rotate() {
    int last = 0;
    while (access(rotated(last + 1).c_str(), F_OK) == 0) ++last;
    for (; last > 0; --last) move(rotated(last), rotated(last + 1));
    if (way == Rotation::rename) {
      move(path, rotated(1));
      close(fd);
      reopen();
    } else {
      std::filesystem::copy_file(path, rotated(1));
      if (truncate(path.c_str(), 0) != 0) throw std::runtime_error("cannot truncate");
    }
  }

  /* Writes a line every 2 ms, in a thread of its own, until stop. */
  void begin() {
    thread = std::thread([this] {
      for (int line = 1; !enough; ++line) {
        write_line("line " + std::to_string(line) + " of a service that has much to say\n");
        if (line % lines_of_a_file == 0) rotate();
        usleep(2000);
      }
    });
  }

  void stop() {
    enough = true;
    if (thread.joinable()) thread.join();
  }

  /* Everything that was written, when no thread writes. */
  const std::string& written() const { return all; }

 private:
  std::string rotated(int number) const { return path + "." + std::to_string(number); }

  static void move(const std::string& from, const std::string& to) {
    if (rename(from.c_str(), to.c_str()) != 0) throw std::runtime_error("cannot rename " + from);
  }

  void reopen() {
    fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd == -1) throw std::runtime_error("cannot open " + path + ": " + strerror(errno));
  }

  void put(const std::string& text) const {
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
      throw std::runtime_error("cannot write");
    }
  }

  const std::string path;
  const Rotation way;
  int fd = -1;
  std::string all;
  std::atomic<bool> enough{false};
  std::thread thread;
};

#endif
