#ifndef TESTS_KEYS_KEY_DIALOGUE_FIXTURE_H
#define TESTS_KEYS_KEY_DIALOGUE_FIXTURE_H

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "TavrenKeyDownloader.h"
#include "lab/lab.h"
#include "support/client_dialogue.h"
#include "support/files.h"
#include "support/scripted_client.h"
#include "tavren_share.h"

/* The dialogue with a scripted client in the real one's place. */
class KeyDialogue : public LabTest {
 protected:
  KeyDialogue() { dialogue.user = "tavren_anonymous"; }

  ~KeyDialogue() override { put_the_real_client_back(); }

  void put_the_real_client_back() {
    if (client != nullptr) lab::run("while umount -l /usr/bin/ssh 2>/dev/null; do :; done");
    client = nullptr;
  }

  /* Puts a client that runs the lines body, with its key file in $file, in the real one's place. */
  void play(const std::string& body) {
    put_the_real_client_back();
    client = std::make_unique<ScriptedClient>(
        "for argument; do case $argument in -oUserKnownHostsFile=*) file=${argument#*=};; esac; done\n" + body);
    lab::change_machine("mount --bind " + client->path() + " /usr/bin/ssh");
  }

  /* A client that is told yes, runs the lines record and asks for the password. */
  void play_recording(const std::string& record) {
    play(question + "take yes\n" + record + "\n" + say(dialogue.answered() + dialogue.prompt()) + wait_forever);
  }

  /* The same for a client that records content. */
  void play_key(const std::string& content) {
    write_file(lab::value("LAB") + "/content", content);
    play_recording("cat " + lab::value("LAB") + "/content >\"$file\"");
  }

  /* A client that records a key, asks for the password and, told to end, does that first. */
  void play_until_stopped(const std::string& action) {
    play("trap '" + action + "; exit' TERM\n" + question + record_key + say(dialogue.answered() + dialogue.prompt()) +
         "sleep 100 & wait\n");
  }

  static std::string fetched() {
    TavrenKeyDownloader downloader("archive.example");
    std::string key;
    downloader.download_host_key(key);
    return key;
  }

  static std::string key_file() { return std::string(tavren_get_tmp_dir()) + "/downloaded_key"; }
  static bool file_is_left() { return std::filesystem::exists(key_file()); }

  ClientDialogue dialogue;
  std::unique_ptr<ScriptedClient> client;
  const std::string wait_forever = "exec sleep 100\n";
  const std::string question = say(dialogue.introduction() + dialogue.question());
  const std::string record_key = "take yes\necho 'h t k' >\"$file\"\n"; /* of which "t k" is the key */
};

#endif
