/*
 * Names of tasks and intervals, as people write them.
 */
#ifndef TOOLS_TASKS_H
#define TOOLS_TASKS_H

#include <stdbool.h>

/*
 * Returns the daemon's name of a task, which the caller frees: "audit" is LogTypeTask.audit, "space" SpaceTask; those
 * names themselves stay as they are. NULL without memory.
 */
char* task_name(const char* name);

/* Returns whether a table of intervals has a row for the task of that name. */
bool has_task(const char* table, const char* name);

/*
 * Takes "30min" or "default" and returns what the daemon is sent, "1800" or "default", which the caller frees. NULL
 * after a message.
 */
char* interval_value(const char* text);

#endif
