#ifndef TESTS_HOST_ODD_NAMES_H
#define TESTS_HOST_ODD_NAMES_H

#include "support/named.h"

/* Names of files that a shell, or a program that takes options, could misread. */
inline constexpr Named<const char*> odd_names[] = {
    {"Plain", "plain"},
    {"OneBlank", " "},
    {"Blanks", "two  words"},
    {"SingleQuote", "it's"},
    {"DoubleQuotes", "\"quoted\""},
    {"Substitution", "$(touch x)"},
    {"Backquotes", "`touch x`"},
    {"Variable", "$HOME"},
    {"LeadingHyphen", "-name"},
    {"Option", "-r"},
    {"EndOfOptions", "--"},
    {"Backslash", "a\\b"},
    {"Escape", "a\\nb"},
    {"Pattern", "*?[a]"},
    {"Tilde", "~"},
    {"Operators", "a;b&c|d>e"},
    {"Comment", "#"},
    {"TwoByteCharacters", "\xc3\xa4\xc3\xb6"},
    {"NoCharacters", "\xff\x80"},
    {"TwoLines", "two\nlines"},
};

#endif
