/*
 * The version of these headers, and the one place in which it stands: the build, the package files and the soname take
 * it from here.
 *
 * Within one major version a program goes on running with any later library. A program that wants to compile against an
 * earlier one, too, asks with the preprocessor: #if TAVREN_VERSION >= 10100.
 */
#ifndef TAVREN_VERSION_H
#define TAVREN_VERSION_H

/* The parts of the version. */
#define TAVREN_VERSION_MAJOR 1
#define TAVREN_VERSION_MINOR 1
#define TAVREN_VERSION_PATCH 0

/* The version as a number that grows with it: 10203 is 1.2.3. */
#define TAVREN_VERSION (TAVREN_VERSION_MAJOR * 10000 + TAVREN_VERSION_MINOR * 100 + TAVREN_VERSION_PATCH)

/* The version as a text, "1.2.3". The two macros behind it are only there for it. */
#define TAVREN_VERSION_TEXT                    \
  TAVREN_VERSION_TEXT_OF(TAVREN_VERSION_MAJOR) \
  "." TAVREN_VERSION_TEXT_OF(TAVREN_VERSION_MINOR) "." TAVREN_VERSION_TEXT_OF(TAVREN_VERSION_PATCH)
#define TAVREN_VERSION_TEXT_OF(number) TAVREN_VERSION_TEXT_AS_IT_STANDS(number)
#define TAVREN_VERSION_TEXT_AS_IT_STANDS(number) #number

#endif
