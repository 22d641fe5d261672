#ifndef TAVREND_ARCHIVER_FAILURES_H
#define TAVREND_ARCHIVER_FAILURES_H

#include <stdint.h>

#include <exception>
#include <string>
#include <system_error>

#include "TavrenError.h"
#include "archiver/session.h"
#include "sources/local_files.h"

/* What goes wrong, in the numbered form in which it is stored. */

TavrenError error_of(const UnreadableFile& file);
TavrenError error_of(const FileChanged& file);
TavrenError error_of(const NoRoom& item);
TavrenError error_of(const std::system_error& failure);
/* What has no error number of its own: the state that cannot be written, memory that has run out. */
TavrenError error_of(const std::exception& failure);

/* Bytes from the first to before the end were rotated away unread. */
TavrenError error_of_lost(const std::string& path, int64_t first, int64_t end);

/* Whether the far side has refused one item, which says nothing about the next. */
bool is_about_one_item(const TavrenError& error);

#endif
