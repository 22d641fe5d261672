#ifndef TAVREND_SOURCES_COMPRESSION_H
#define TAVREND_SOURCES_COMPRESSION_H

#include <stdint.h>

#include <functional>
#include <string>

#include "sources/local_files.h"

/*
 * Compresses length bytes of file from first on into a temporary file without a name in directory, and returns that:
 * its size must be known before it is sent. Frames have a checksum. Throws UnreadableFile with path when file cannot be
 * read, FileChanged when it is shorter, and std::system_error when there is no room for the result. Takes some MiB,
 * whatever the length, and for a long file two threads, which end before this returns. check is called for each piece;
 * what it throws ends the work.
 */
OpenFile compress(const OpenFile& file, const std::string& path, int64_t first, int64_t length,
                  const std::string& directory, const std::function<void()>& check);

#endif
