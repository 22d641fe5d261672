#ifndef TAVREND_SOURCES_PLAIN_SIZE_H
#define TAVREND_SOURCES_PLAIN_SIZE_H

#include <stddef.h>
#include <stdint.h>

#include <string_view>

/* So many bytes at the end of a compressed file may say how many there were. */
constexpr size_t tail_size = 4;

/*
 * Returns how many bytes a file had before it was compressed, where its first and its last bytes say so: one by gzip of
 * less than 4 GiB, or by zstd; -1 for others. A file of several such parts says it of one of them.
 */
int64_t plain_size_of(std::string_view head, std::string_view tail);

#endif
