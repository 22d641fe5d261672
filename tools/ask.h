/*
 * What a tool asks a person, or finds out for one, before it trusts an archive host.
 */
#ifndef TOOLS_ASK_H
#define TOOLS_ASK_H

#include <stdbool.h>
#include <tavren.h>

enum {
  PASSWORD_SIZE = 1024, /* the secure shell client takes no more */
  KNOWN_KEY_SIZE = 4096 /* a file may hold a longer key than can be fetched */
};

/* Says that what has failed, why (message, which is freed), and what to do about it unless advice is NULL. */
void report(const char* what, char* message, const char* advice);

/* Returns whether text is the number of a descriptor, which it then stores in fd; says so otherwise. */
bool parse_descriptor(const char* text, int* fd);

/*
 * Fills key (KNOWN_KEY_SIZE bytes), the only one that is accepted of the host from here on, and its fingerprint
 * (TAVREN_FINGERPRINT_SIZE bytes). The key comes from known_key_file; when that is NULL it is fetched and shown, and a
 * person, or confirm, says that it is right. Only a person can say so of another key than expected (empty: none is).
 * Returns false after a message.
 */
bool choose_host_key(const char* known_key_file, bool confirm, const char* host, const char* expected, char* key,
                     char* fingerprint);

/* Reads the password (PASSWORD_SIZE bytes) from descriptor fd, or asks for it when that is -1. Returns false after a
   message. */
bool get_password(int fd, char* password);

/* Tests host and directory and claims the directory for this chassis. Returns false after a message. */
bool test_host(const tavren_settings_t* settings);

#endif
