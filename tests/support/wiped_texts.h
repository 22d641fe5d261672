#ifndef TESTS_SUPPORT_WIPED_TEXTS_H
#define TESTS_SUPPORT_WIPED_TEXTS_H

#include <string>

/* The texts that the library has wiped, as they were before, a '|' behind each. */
extern std::string wiped_texts;

#endif
