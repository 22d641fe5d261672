#ifndef TESTS_TAVREND_CHANGING_FILES_H
#define TESTS_TAVREND_CHANGING_FILES_H

#include <functional>
#include <string>

/*
 * What happens to files behind certain calls, as another process would do it: for a program that is linked with
 * changing_files.cpp.
 */
namespace changing_files {

extern std::function<void(const std::string& path)> after_lstat;
extern std::function<void(const std::string& path)> after_open;
extern std::function<void()> after_pread;
extern int entries_until_an_error; /* of a directory; -1: there is none */

extern bool has_nameless_files; /* of the file system */

/* Nothing more happens. */
void stop();

}  // namespace changing_files

#endif
