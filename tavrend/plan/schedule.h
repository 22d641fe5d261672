#ifndef TAVREND_PLAN_SCHEDULE_H
#define TAVREND_PLAN_SCHEDULE_H

#include <stdint.h>

#include <string>

/* When tasks run. Pure functions; times are milliseconds of a monotonic clock, intervals whole seconds. */

constexpr int32_t shortest_interval = 1;
constexpr int32_t longest_interval = 31536000;

/*
 * Returns how long a task's first run waits: a part of its interval that follows from the chassis and the task, so that
 * many machines that were switched on together do not come together.
 */
int64_t first_delay_ms(const std::string& chassis, const std::string& task, int32_t interval);

/*
 * Returns how long a failed session is waited for: seconds, more or less by up to a tenth. draw is a number from 0 to 1
 * that is drawn anew each time.
 */
int64_t retry_delay_ms(int32_t seconds, double draw);

/*
 * Returns what the draws of a chassis begin with, whose daemon starts at now_ms of the time of day. The time alone
 * would not do: a clock without a battery begins anew with the machine, and many machines begin at once.
 */
uint32_t first_of_draws(const std::string& chassis, int64_t now_ms);

/*
 * Returns when a task that was due at due_ms and runs at now_ms is due again: a whole number of intervals later, so
 * that runs keep their place, and after now.
 */
int64_t next_due_ms(int64_t due_ms, int64_t now_ms, int32_t interval);

/*
 * Reads an interval: a whole number of seconds, or of what follows it without a blank: s, min, h, d. Returns it in
 * seconds, or 0 when the text is none, or not from 1 to 31536000.
 */
int32_t parse_interval(const std::string& text);

#endif
