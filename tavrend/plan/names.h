#ifndef TAVREND_PLAN_NAMES_H
#define TAVREND_PLAN_NAMES_H

#include <stdint.h>

#include <string>

/*
 * What archived items are called: SECTION/TIME.BASE, where names in one section sort in the order in which they were
 * archived. Pure functions; times are milliseconds since the epoch.
 */

/* Returns the time of the next item of a section whose last one had last_ms: later than that, also by a clock set back.
 */
int64_t next_item_time(int64_t now_ms, int64_t last_ms);

/* Returns ms in UTC as "2026-11-22T06:29:51.123". */
std::string time_stamp(int64_t ms);

/*
 * Returns the path of an item in the archive directory. base is the local file's name without directories: control
 * characters in it become "_", and what is behind its first 200 bytes goes, so that every name can be archived.
 */
std::string item_path(const std::string& section, int64_t ms, const std::string& base, bool compressed);

/* Returns whether path is that of an item of the file called base, in that form. */
bool is_item_of(const std::string& path, const std::string& base, bool compressed);

#endif
