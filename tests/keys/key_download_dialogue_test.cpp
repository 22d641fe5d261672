#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "TavrenExceptions.h"
#include "TavrenKeyDownloader.h"
#include "keys/key_dialogue_fixture.h"
#include "process/faults.h"
#include "support/files.h"
#include "support/run_in_child.h"
#include "tavren_host_util.h"
#include "tavren_share.h"

using testing::ElementsAre;

namespace {

TEST_F(KeyDialogue, GivesTheClientItsArguments) {
  play_key("archive.example ssh-rsa AAAA\n");
  fetched();
  EXPECT_THAT(client->arguments(),
              ElementsAre("-2", "-4", "-oPreferredAuthentications=password", "-oGlobalKnownHostsFile=/dev/null",
                          "-oUserKnownHostsFile=" + key_file(), "tavren_anonymous@archive.example"));
  EXPECT_EQ(client->environment(), "");
}

TEST_F(KeyDialogue, TakesWhatFollowsTheFirstBlankOfTheFirstLineAndKeepsAllButItsNewline) {
  for (const auto& [content, key] :
       {std::pair{"archive.example ssh-rsa AAAA\nother ssh-ed25519 BBBB\n", "ssh-rsa AAAA"},
        {"archive.example ssh-rsa AAAA", "ssh-rsa AAAA"},
        {"archive\texample ssh-rsa AAAA\n", "ssh-rsa AAAA"},
        {"archive.example \n", ""},
        {"archive.example ssh-rsa AAAA \n", "ssh-rsa AAAA "},
        {"archive.example ssh-rsa AAAA\t\n", "ssh-rsa AAAA\t"},
        {"archive.example ssh-rsa AAAA\r\n", "ssh-rsa AAAA\r"}}) {
    play_key(content);
    EXPECT_EQ(fetched(), key);
  }
}

/* A client that still ran could write the file after its removal. */
TEST_F(KeyDialogue, AnswersYesAndNothingElseAndStopsTheClientBeforeItRemovesTheFile) {
  play_until_stopped("timeout --foreground 0.2 cat >$dir/rest <&2; [ ! -e \"$file\" ] || echo >$dir/was-there");
  EXPECT_EQ(fetched(), "t k");
  EXPECT_EQ(client->taken("yes"), "yes\n");
  EXPECT_EQ(client->taken("rest"), "");
  EXPECT_TRUE(std::filesystem::exists(client->path("was-there")));
  EXPECT_FALSE(file_is_left());
}

TEST_F(KeyDialogue, UnderstandsWhateverClientsSay) {
  const std::string answered = say(dialogue.answered() + dialogue.prompt());
  ClientDialogue older = dialogue;
  older.before_question = older.before_prompt = "";
  older.choice = "(yes/no)? ";
  ClientDialogue newer = dialogue;
  newer.noise = "** WARNING: connection is not using a post-quantum key exchange\r\n";
  const std::pair<const char*, std::string> clients[] = {
      {"an older one",
       say(older.introduction() + older.question()) + record_key + say(older.answered() + older.prompt())},
      {"other lines before the question",
       say("Welcome.\r\nx Are you sure you want to continue connecting (yes/no)? \r\n" + dialogue.introduction() +
           dialogue.question()) +
           record_key + answered},
      /* The client records the key after the answer and before the prompt. */
      {"a key that comes late",
       question + "take yes\n" + say(newer.answered()) + "sleep 0.3\necho 'h t k' >\"$file\"\n" + say(newer.prompt())},
      {"no password login",
       question + record_key +
           say(dialogue.answered() + "tavren_anonymous@archive.example: Permission denied (publickey).\r\n")},
      /* Where the machine's own configuration has the client accept any key, it does not ask. */
      {"no question", "echo 'h t k' >\"$file\"\n" + answered},
  };
  for (const auto& [what, body] : clients) {
    play(body + wait_forever);
    EXPECT_EQ(fetched(), "t k") << what;
  }
}

TEST_F(KeyDialogue, AKeyOf895CharactersIsTakenAlsoInCAndAKeyOf896IsTooLarge) {
  const std::string key = "ssh-rsa " + std::string(887, 'A');
  play_key("h " + key + "\n");
  EXPECT_EQ(fetched(), key);
  EXPECT_FALSE(file_is_left());
  char buffer[TAVREN_HOST_KEY_SIZE];
  char* error = nullptr;
  EXPECT_EQ(tavren_download_host_key("archive.example", buffer, &error), 0);
  EXPECT_EQ(buffer, key);
  play_key("h " + key + "A\n");
  EXPECT_EQ(error_of([] { fetched(); }), "9\n  - Host key is too large (896 bytes)\n");
  EXPECT_FALSE(file_is_left());
}

/* Nor is what a link leads to read. */
TEST_F(KeyDialogue, AFileWithoutAKeyIsAnErrorAndDoesNotStay) {
  const std::string precious = lab::value("LAB") + "/precious";
  write_file(precious, "h secret\n");
  const std::string not_opened = "5\n  - Failed to open file " + key_file() + ", ecode=";
  const std::string not_read = "6\n  - Failed to read from file " + key_file() + ", ecode=";
  for (const auto& [record, error] : {std::pair<std::string, std::string>{"", not_opened + "2\n"},
                                      {"ln -s " + precious + " \"$file\"", not_opened + std::to_string(ELOOP) + "\n"},
                                      {": >\"$file\"", not_read + "0\n"},
                                      {"mkfifo \"$file\"", not_read + "0\n"}, /* nobody writes to it */
                                      {"echo archive.example >\"$file\"", not_read + "22\n"},
                                      {"mkdir \"$file\"", not_read + "21\n"}}) {
    play_recording(record);
    EXPECT_EQ(error_of([] { fetched(); }), error);
    EXPECT_EQ(file_is_left(), record == "mkdir \"$file\"");
  }
}

TEST_F(KeyDialogue, AClientThatEndsIsAnErrorWithItsLastLinesAndLeavesNoFile) {
  play(say("ssh: no route\r\n"));
  EXPECT_EQ(error_of([] { fetched(); }),
            "13\n  - Program exited unexpectedly: /usr/bin/ssh\n  - Output: \"ssh: no route\"\n");
  play(question + record_key);
  EXPECT_EQ(error_of([] { fetched(); }).substr(0, 3), "13\n");
  EXPECT_FALSE(file_is_left());
}

/* A client may have been about to record the key when it is told to end. */
TEST_F(KeyDialogue, AClientThatWritesTheFileWhenItIsStoppedLeavesNoFile) {
  play("trap 'echo \"h t k\" >\"$file\"; exit' TERM\n" + question + "take yes\n" +
       say(dialogue.answered() + dialogue.prompt()) + "sleep 100 &\nwait\n");
  EXPECT_EQ(error_of([] { fetched(); }).substr(0, 2), "5\n");
  EXPECT_FALSE(file_is_left());
}

TEST_F(KeyDialogue, AClientThatNeverStopsTalkingIsATimeout) {
  play("while :; do echo line; done\n");
  const ScopedTunable timeout("ssh_connect_timeout", 1);
  EXPECT_THROW(fetched(), TavrenTimeout);
}

TEST_F(KeyDialogue, ALineWithoutAnEndIsAnErrorOfExcessiveOutput) {
  play("head -c 200000 /dev/zero | tr '\\0' x\n" + wait_forever);
  EXPECT_EQ(error_of([] { fetched(); }).substr(0, 3), "25\n");
}

TEST_F(KeyDialogue, AnObjectStartsItsClientAtOnceAndStopsItInTheEnd) {
  lab::run("rm -f $LAB/pid");
  play("echo $$ >" + lab::value("LAB") + "/pid.new\nmv " + lab::value("LAB") + "/pid.new " + lab::value("LAB") +
       "/pid\n" + wait_forever);
  {
    const TavrenKeyDownloader downloader("archive.example");
    lab::run("while [ ! -e $LAB/pid ]; do sleep 0.01; done; kill -0 $(cat $LAB/pid)");
  }
  lab::run("! kill -0 $(cat $LAB/pid) 2>/dev/null");
}

TEST_F(KeyDialogue, AnObjectThatEndsLeavesTheFileAlone) {
  play(wait_forever);
  {
    const TavrenKeyDownloader downloader("archive.example");
    EXPECT_FALSE(file_is_left());
    write_file(key_file(), "x");
  }
  EXPECT_TRUE(file_is_left());
}

/* Returns the writing ends of this process's pipes. */
std::set<int> writing_ends() {
  std::set<int> ends;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    struct stat status {};
    const int fd = std::stoi(entry.path().filename().string());
    if (fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode) && (fcntl(fd, F_GETFL) & O_ACCMODE) == O_WRONLY) {
      ends.insert(fd);
    }
  }
  return ends;
}

/*
 * Cancels the download that is begun while it lives, once a file is there. Only the download has the client's process
 * object, so this is what disabling that does: a byte for its pipe.
 */
class CancelOnceThereIs {
 public:
  explicit CancelOnceThereIs(const std::string& file)
      : thread([file, before = writing_ends()] {
          while (!std::filesystem::exists(file)) usleep(1000);
          for (const int fd : writing_ends()) {
            if (before.count(fd) == 0 && write(fd, "\n", 1) != 1) abort();
          }
        }) {}
  ~CancelOnceThereIs() { thread.join(); }
  CancelOnceThereIs(const CancelOnceThereIs&) = delete;
  CancelOnceThereIs& operator=(const CancelOnceThereIs&) = delete;

 private:
  std::thread thread;
};

class CancelledKeyDownload : public KeyDialogue {
 protected:
  /* The client records the key and never comes to the prompt. */
  CancelledKeyDownload() { play(question + record_key + wait_forever); }
};

TEST_F(CancelledKeyDownload, ThrowsAndLeavesNoFile) {
  const CancelOnceThereIs cancel(key_file());
  EXPECT_THROW(fetched(), TavrenOperationCancelled);
  EXPECT_FALSE(file_is_left());
}

TEST_F(CancelledKeyDownload, PassesTheFunctionOfC) {
  const CancelOnceThereIs cancel(key_file());
  char key[TAVREN_HOST_KEY_SIZE] = "untouched";
  char unset = 0;
  char* error = &unset;
  EXPECT_THROW(tavren_download_host_key("archive.example", key, &error), TavrenOperationCancelled);
  EXPECT_STREQ(key, "untouched");
  EXPECT_EQ(error, &unset);
}

class KeyDownloadFault : public KeyDialogue {};

TEST_F(KeyDownloadFault, ThatKeepsTheClientFromStartingIsASystemCallError) {
  for (const auto& [name, function] : {std::pair{"pipe", "pipe2"}, {"forkpty", "forkpty"}}) {
    const Faulty call(function, EMFILE);
    char key[TAVREN_HOST_KEY_SIZE];
    char* error = nullptr;
    EXPECT_EQ(tavren_download_host_key("archive.example", key, &error), -1);
    EXPECT_EQ(error, std::string("  - System call \"") + name + "\" failed with error code 24\n");
    free(error);
  }
}

TEST_F(KeyDialogue, WithoutAPrivateDirectoryIsAFailedAssertion) {
  tavren_cleanup_tmp_dir();
  expect_assertion("TavrenKeyDownloader", "tavren_get_tmp_dir() != NULL", [] { fetched(); });
}

}  // namespace
