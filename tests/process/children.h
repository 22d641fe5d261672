#ifndef TESTS_PROCESS_CHILDREN_H
#define TESTS_PROCESS_CHILDREN_H

#include <sys/types.h>

#include <functional>
#include <list>
#include <string>

#include "TavrenProcess.h"

/* More than any terminal or pipe holds, so that a child must read for it to get through. */
inline const std::string megabyte(1000000, 'x');

/* A script of a child that SIGTERM does not end, once it has told its process id. */
constexpr const char* deaf = "trap '' TERM; echo $$; exec sleep 600";

/* Seconds that only a test that hangs waits for. */
constexpr int patience = 45;

/* The deadline, in seconds of uptime, that belongs to it. */
long patient_deadline();

/* A deadline that has passed: what is there is taken, nothing is waited for. */
long past_deadline();

/* Starts a shell that runs script. */
TavrenProcess shell(const std::string& script, bool separate_stdin = false);

/* Starts the program of counterpart.cpp. */
TavrenProcess counterpart(const std::list<std::string>& arguments, bool separate_stdin = false);

/*
 * Starts a program that cannot be run, and tells how reading its output ended. Nothing may wait in the test's own
 * standard output: under the thread sanitizer a child writes it too when it gives up.
 */
std::string result_of_running(const std::string& program, bool separate_stdin = false);

/* The line that the counterpart prints for input: the number of bytes, their checksum, the terminal's mode. */
std::string sum_line(const std::string& input, const std::string& terminal_mode);

/* Waits for the next line. */
std::string next_line(TavrenProcess& child);

/* Waits for the next line, which is the child's process id: for scripts that begin with "echo $$". */
pid_t announced_pid(TavrenProcess& child);

/* Waits for count bytes. */
std::string next_bytes(TavrenProcess& child, size_t count);

/* Takes all bytes until the child's output ends; a time-out is a failure of the test. */
std::string all_output(TavrenProcess& child);

/* The same of a child that writes no carriage returns before its line ends: line by line, which is fast. */
std::string all_lines(TavrenProcess& child);

/*
 * Runs action and tells how it ended: "done", "TavrenTimeout", "TavrenOperationCancelled", or the lines of the
 * TavrenError, as in "13(/bin/sh) 12(first line) 12(second line)".
 */
std::string result_of(const std::function<void()>& action);

/* The same for reading lines until something else comes, for sending, and for the end of the input. */
std::string result_of_reading_on(TavrenProcess& child);
std::string result_of_sending(TavrenProcess& child, const std::string& data, int timeout = patience);
std::string result_of_send_eof(TavrenProcess& child, int timeout);

/* One way to read. Those that look for something look for "end". */
using Reading = void (*)(TavrenProcess& child, long deadline);
void read_a_byte(TavrenProcess& child, long deadline);
void read_a_line(TavrenProcess& child, long deadline);
void expect_the_end(TavrenProcess& child, long deadline);
void skip_to_the_end(TavrenProcess& child, long deadline);
constexpr Reading readings[] = {read_a_line, expect_the_end, skip_to_the_end, read_a_byte};
std::string result_of_reading(Reading read, TavrenProcess& child, long deadline = patient_deadline());

inline const std::string cancelled = "TavrenOperationCancelled";

#endif
