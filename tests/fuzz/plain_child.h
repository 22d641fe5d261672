#ifndef TESTS_FUZZ_PLAIN_CHILD_H
#define TESTS_FUZZ_PLAIN_CHILD_H

#include <algorithm>
#include <list>
#include <string>
#include <vector>

#include "fuzz/played_child.h"

/*
 * What TavrenProcess must make of a played child, in the plainest way: all that has arrived is one text, of which so
 * much has been taken. Slow, and without descriptors, buffers or retries. It keeps its own time, which must be the
 * played child's afterwards.
 */
class PlainChild {
 public:
  struct Timeout {};
  struct Cancelled {};
  struct Exited {
    std::vector<std::string> last_lines;
  };
  struct Excessive {
    size_t bytes;
  };
  struct NoChild {}; /* nobody to write to */

  explicit PlainChild(const played_child::Play& played) : play(played) {
    for (size_t i = 0; i < play.pieces.size(); ++i) {
      int pause = play.pieces[i].pause_ms;
      for (size_t p = 0; p < play.pieces[i].bytes.size(); p += 1024) {
        const std::string bytes = play.pieces[i].bytes.substr(p, 1024);
        arrivals.push_back({pause, bytes, i + (p + 1024 >= play.pieces[i].bytes.size() ? 1 : 0)});
        pause = played_child::at_once;
      }
    }
  }

  int64_t now_ms() const { return now; }
  const std::string& heard() const { return taken_by_child; }
  std::list<std::string> recent_lines() const {
    return {lines.end() - static_cast<long>(std::min<size_t>(lines.size(), 20)), lines.end()};
  }
  /* The deadline that lies so many seconds ahead. */
  long after(int seconds) const { return static_cast<long>(now / 1000) + seconds; }
  bool is_past(long deadline) const { return now / 1000 > deadline; }

  /* Whether the unread output begins with prompt, but for carriage returns. */
  bool is_at_the_front(const std::string& prompt) const {
    size_t start = taken;
    for (;; ++start) {
      if (!prompt.empty() && arrived.compare(start, prompt.size(), prompt) == 0) return true;
      if (start == arrived.size() || arrived[start] != '\r') return false;
    }
  }

  int read_byte(long deadline) {
    if (taken == arrived.size()) arrive(deadline);
    return static_cast<uint8_t>(arrived[taken++]);
  }

  bool read_line(std::string& line, long deadline, const std::vector<std::string>& prompts) {
    begin_read();
    return next_line(line, deadline, prompts);
  }

  bool read_line_if_available(std::string& line) {
    begin_read();
    while (!take_line(line)) {
      if (arrival < arrivals.size() ? arrivals[arrival].pause_ms != played_child::at_once : !has_closed()) return false;
      arrive(0);
    }
    return true;
  }

  void expect(const std::string& text, std::list<std::string>& output, long deadline) {
    begin_read();
    std::string line;
    do {
      next_line(line, deadline, {});
      output.push_back(line);
    } while (line.find(text) == std::string::npos);
  }

  void read_until_line_starts_with(const std::vector<std::string>& prompts, long deadline) {
    begin_read();
    std::string line;
    while (!next_line(line, deadline, prompts)) {
    }
  }

  void send(const std::string& data, int timeout) {
    const long deadline = after(timeout);
    if (is_forgotten) throw NoChild();
    for (size_t p = 0; p < data.size();) {
      if (write == play.takes.size()) {
        taken_by_child += data.substr(p);
        return;
      }
      int& take = play.takes[write];
      if (take > 0) {
        const std::string part = data.substr(p, static_cast<size_t>(take));
        taken_by_child += part;
        p += part.size();
      } else {
        wait_to_write(take, deadline);
      }
      ++write;
    }
  }

  /* With a terminal that the child has always emptied: it is looked at five times, with naps in between. */
  void send_eof(int timeout) {
    const long deadline = after(timeout);
    if (is_forgotten) throw NoChild();
    if (is_cancelled) throw Cancelled();
    now += 1 + 2 + 4 + 8;
    if (has_ended()) {
      is_forgotten = true;
      fail_with_last_output(deadline);
    }
    send("\x04", timeout);
  }

  /* Looks again and again, less and less often. */
  void wait_for_end(long deadline) {
    for (int pause_ms = 1; !has_ended(); pause_ms = std::min(2 * pause_ms, 100)) {
      if (is_past(deadline)) throw Timeout();
      if (is_cancelled) throw Cancelled();
      now += pause_ms;
    }
  }

  void stop(int grace_time) {
    if (is_forgotten) return;
    const bool ends = has_ended() || play.obeys_sigterm;
    if (!ends) now += std::max(grace_time, 0) * 1000;
    is_forgotten = true;
  }

  void disable() { is_cancelled = true; }

 private:
  struct Arrival {
    int pause_ms;
    std::string bytes;
    size_t pieces_read; /* with it */
  };

  bool has_closed() const { return arrival == arrivals.size() && play.end != played_child::End::nothing_more; }
  bool has_ended() const {
    const size_t read = arrival == 0 ? 0 : arrivals[arrival - 1].pieces_read;
    return is_forgotten || read >= play.ends_at;
  }
  void begin_read() { this_read = arrived.size() - taken; }

  /* Returns whether it is waited for to the end, and lets the time pass. */
  bool wait(int& pause_ms, long deadline) {
    const int64_t limit = now + (deadline - now / 1000 + 1) * 1000;
    if (limit <= now) throw Timeout();
    if (is_cancelled) throw Cancelled();
    const int64_t waited = std::min<int64_t>(pause_ms, limit - now);
    now += waited;
    pause_ms -= static_cast<int>(waited);
    return pause_ms == 0;
  }

  /* What one read brings, waited for if need be. */
  void arrive(long deadline) {
    if (has_closed()) throw_exited();
    int endless = 2000000000;
    int& pause_ms = arrival == arrivals.size() ? endless : arrivals[arrival].pause_ms;
    if (pause_ms != played_child::at_once && !wait(pause_ms, deadline)) throw Timeout();
    pause_ms = played_child::at_once;
    const std::string& bytes = arrivals[arrival++].bytes;
    this_read += bytes.size();
    if (this_read > 102400) throw Excessive{this_read};
    arrived += bytes;
  }

  bool next_line(std::string& line, long deadline, const std::vector<std::string>& prompts) {
    for (;;) {
      if (std::any_of(prompts.begin(), prompts.end(), [this](const std::string& p) { return is_at_the_front(p); })) {
        return true;
      }
      if (take_line(line)) return false;
      arrive(deadline);
    }
  }

  bool take_line(std::string& line) {
    const size_t newline = arrived.find('\n', taken);
    if (newline == std::string::npos) return false;
    line = arrived.substr(taken, newline - taken);
    while (!line.empty() && line.back() == '\r') line.pop_back();
    taken = newline + 1;
    lines.push_back(line);
    return true;
  }

  void wait_to_write(int& take, long deadline) {
    do {
      if (has_ended()) fail_with_last_output(deadline);
      if (is_past(deadline)) throw Timeout();
      if (is_cancelled) throw Cancelled();
      const int tenths = std::min(-take, 10);
      now += tenths * 100;
      take += tenths;
    } while (take < 0);
  }

  [[noreturn]] void fail_with_last_output(long deadline) {
    try {
      read_until_line_starts_with({}, deadline);
    } catch (const Timeout&) {
    } catch (const Excessive&) {
    }
    throw_exited();
  }

  [[noreturn]] void throw_exited() const {
    const std::list<std::string> last = recent_lines();
    throw Exited{{last.begin(), last.end()}};
  }

  played_child::Play play;
  std::vector<Arrival> arrivals;
  size_t arrival = 0; /* the next one */
  std::string arrived;
  size_t taken = 0;     /* of arrived */
  size_t this_read = 0; /* bytes that have come since a read of lines began, and those that were there */
  std::vector<std::string> lines;
  size_t write = 0; /* of play.takes */
  std::string taken_by_child;
  bool is_cancelled = false;
  bool is_forgotten = false; /* the child was reaped */
  int64_t now = played_child::first_uptime_ms;
};

#endif
