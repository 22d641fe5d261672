#ifndef SRC_PROCESS_SSH_CLIENT_H
#define SRC_PROCESS_SSH_CLIENT_H

#include <string>
#include <vector>

#include "TavrenProcess.h"

/*
 * Answers yes when the secure shell client, which has been given no known hosts, asks whether to go on with this one. A
 * machine's own configuration may have told it not to ask: then one of prompts, for the password, ends the wait. What
 * it says before either is dropped. Throws as reading and sending do.
 */
void accept_host_key(TavrenProcess& client, const std::vector<std::string>& prompts, long deadline);

/*
 * Returns path as a word of the client's option for a file: it splits what it is given at blanks, and takes quotes and
 * backslashes for its own.
 */
std::string option_word(const std::string& path);

#endif
