#ifndef TESTS_SUPPORT_RECORDED_SYSTEM_H
#define TESTS_SUPPORT_RECORDED_SYSTEM_H

#include <time.h>

#include <functional>
#include <string>
#include <vector>

/*
 * The machine as the library meets it in a program that is linked with recorded_system.cpp: system log and console
 * are recorded in memory and never reach the real ones, and both clocks can be set.
 */
namespace recorded_system {

struct LogEntry {
  int priority;
  std::string text;
};

inline bool operator==(const LogEntry& a, const LogEntry& b) { return a.priority == b.priority && a.text == b.text; }

/*
 * Forgets all records and actions, stops recording and refusing writes, lets both clocks run by themselves and gives
 * the machine a console.
 */
void reset();

/* Returns what was sent to the system log since the last call. */
std::vector<LogEntry> take_log();

/* Returns what was written to the console since the last call, one text for each write. */
std::vector<std::string> take_console();

/* Returns the flags with which the console was opened last, -1 for never. */
int console_flags();

/* Takes the machine's console away. */
void remove_console();

/* Stops the time of day at now. */
void set_time(time_t now);

/*
 * Lets the uptime clock run by one second with every look at it: whoever does not look may take for ever. The time
 * that the test runner reports for the test contains these seconds.
 */
void hurry_uptime();

/*
 * Stops the uptime clock. It moves on by naps, which are cut short then, and by waits in vain: those for something to
 * be written that refuse_to_write refuses, and any once the file silence exists, which whoever was waited for makes
 * when it has said its last word. What has passed on the clock is so exactly what was waited for.
 */
void stop_uptime(const std::string& silence = "");

/* Moves the uptime clock on. */
void pass_uptime(int seconds);

constexpr int for_good = 2147483; /* seconds */

/*
 * Lets write(2) take nothing when it is given just text, as a full terminal does; "": everything is taken. With the
 * uptime clock stopped, text is taken after all when it has been waited for so many seconds.
 */
void refuse_to_write(const std::string& text, int seconds = for_good);

/* Starts recording what the process writes with write(2). */
void record_writes();

/* Returns what was written since record_writes or the last call, one text for each write that took something. */
std::vector<std::string> take_writes();

/*
 * Runs action once, in the thread that makes the call and before it takes effect: when "time", "syslog" or "write" is
 * called next, when the "console" is opened or, for "write" and a whole text behind a blank, when that text is written.
 * In "console" and the writes the action may throw.
 */
void at_next(const std::string& call, std::function<void()> action);

/* Installs a message catalogue of one text for the domain "tavren". */
void translate(const std::string& text, const std::string& translation);

}  // namespace recorded_system

#endif
