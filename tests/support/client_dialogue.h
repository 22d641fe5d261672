#ifndef TESTS_SUPPORT_CLIENT_DIALOGUE_H
#define TESTS_SUPPORT_CLIENT_DIALOGUE_H

#include <string>

#include "support/scripted_client.h"

/*
 * What the secure shell client writes to a raw terminal while it logs in without a known host key and with a
 * password, byte for byte as measured. The members are the places in which its versions differ.
 */
struct ClientDialogue {
  std::string user = "archiver";
  std::string host = "archive.example";
  std::string line_end = "\r\n";                                           /* of the client's own messages */
  std::string before_question = "\r";                                      /* none up to 7.9 */
  std::string before_prompt = "\r";                                        /* none up to 7.9 */
  std::string fingerprint_is = " is ";                                     /* " is: " since 10.1 */
  std::string fingerprint_end = ".";                                       /* none since 10.1 */
  std::string other_names = "This key is not known by any other names.\n"; /* none up to 8.0 */
  std::string choice = "(yes/no/[fingerprint])? ";                         /* "(yes/no)? " up to 7.9 */
  std::string noise; /* lines before the prompt: a banner, warnings */

  /* What is written before the last line of the question. */
  std::string introduction() const {
    return before_question + "The authenticity of host '" + host + " (127.0.0.1)' can't be established.\n" +
           "ED25519 key fingerprint" + fingerprint_is + "SHA256:PJxbiiydB1yPkqSBlRCpvMNoPGXvKvDsYVtbBdWIGPc" +
           fingerprint_end + "\n" + other_names;
  }
  std::string question() const { return "Are you sure you want to continue connecting " + choice; }

  /* What is written between the answer and the prompt. */
  std::string answered() const {
    return "\nWarning: Permanently added '" + host + "' (ED25519) to the list of known hosts." + line_end + noise;
  }
  std::string prompt() const { return before_prompt + user + "@" + host + "'s password: "; }

  static std::string shell_started() { return "\nSHELL STARTED.\n"; }
  std::string refusal() const { return "\nPermission denied, please try again." + line_end + prompt(); }

  /* Script lines: the dialogue up to the prompt, and up to a shell, the answers recorded in "yes" and "password". */
  std::string up_to_prompt() const {
    return say(introduction() + question()) + "take yes\n" + say(answered() + prompt());
  }
  std::string login() const { return up_to_prompt() + "take password\n" + say(shell_started()) + "become_shell\n"; }

  /* The same for a host whose key is known. */
  std::string login_with_key() const {
    return say(noise + prompt()) + "take password\n" + say(shell_started()) + "become_shell\n";
  }
};

#endif
