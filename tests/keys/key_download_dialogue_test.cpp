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

#include "TavrenExceptions.h"
#include "TavrenKeyDownloader.h"
#include "keys/key_dialogue_fixture.h"
#include "process/faults.h"
#include "support/files.h"
#include "support/named.h"
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

TEST_F(KeyDialogue, TakesWhatFollowsTheHostInTheFirstLine) {
  play_key("archive.example ssh-rsa AAAA\nother ssh-ed25519 BBBB\n");
  EXPECT_EQ(fetched(), "ssh-rsa AAAA");
}

TEST_F(KeyDialogue, TakesALineWithoutANewline) {
  play_key("archive.example ssh-rsa AAAA");
  EXPECT_EQ(fetched(), "ssh-rsa AAAA");
}

TEST_F(KeyDialogue, TakesABlankAloneForTheEndOfTheHost) {
  play_key("archive\texample ssh-rsa AAAA\n");
  EXPECT_EQ(fetched(), "ssh-rsa AAAA");
}

TEST_F(KeyDialogue, TakesALineThatEndsAfterTheHost) {
  play_key("archive.example \n");
  EXPECT_EQ(fetched(), "");
}

class KeyThatEndsIn : public KeyDialogue, public testing::WithParamInterface<Named<const char*>> {};

TEST_P(KeyThatEndsIn, KeepsAllButTheNewline) {
  const std::string key = std::string("ssh-rsa AAAA") + GetParam().value;
  play_key("archive.example " + key + "\n");
  EXPECT_EQ(fetched(), key);
}

INSTANTIATE_TEST_SUITE_P(Bytes, KeyThatEndsIn,
                         testing::Values(Named<const char*>{"ABlank", " "}, Named<const char*>{"ATab", "\t"},
                                         Named<const char*>{"ACarriageReturn", "\r"}),
                         by_name);

TEST_F(KeyDialogue, AnswersYesAndNothingElse) {
  play_until_stopped("timeout --foreground 0.2 cat >$dir/rest <&2");
  EXPECT_EQ(fetched(), "t k");
  EXPECT_EQ(client->taken("yes"), "yes\n");
  EXPECT_EQ(client->taken("rest"), "");
}

TEST_F(KeyDialogue, WaitsForTheQuestionBehindOtherLines) {
  play(say("Welcome.\r\nx Are you sure you want to continue connecting (yes/no)? \r\n" + dialogue.introduction() +
           dialogue.question()) +
       "take yes\necho 'h t k' >\"$file\"\n" + say(dialogue.answered() + dialogue.prompt()) + wait_forever);
  EXPECT_EQ(fetched(), "t k");
}

TEST_F(KeyDialogue, UnderstandsOlderClients) {
  dialogue.before_question = dialogue.before_prompt = "";
  dialogue.choice = "(yes/no)? ";
  play_key("h t k\n");
  EXPECT_EQ(fetched(), "t k");
}

/* The client records the key after the answer and before the prompt. */
TEST_F(KeyDialogue, ReadsTheKeyNotBeforeThePrompt) {
  dialogue.noise = "** WARNING: connection is not using a post-quantum key exchange\r\n";
  play(say(dialogue.introduction() + dialogue.question()) + "take yes\n" + say(dialogue.answered()) +
       "sleep 0.3\necho 'h t k' >\"$file\"\n" + say(dialogue.prompt()) + wait_forever);
  EXPECT_EQ(fetched(), "t k");
}

TEST_F(KeyDialogue, TakesTheRefusalOfAPasswordLoginForThePrompt) {
  play(say(dialogue.introduction() + dialogue.question()) + "take yes\necho 'h t k' >\"$file\"\n" +
       say(dialogue.answered() + "tavren_anonymous@archive.example: Permission denied (publickey).\r\n") +
       wait_forever);
  EXPECT_EQ(fetched(), "t k");
}

/* Where the machine's own configuration has the client accept any key, it does not ask. */
TEST_F(KeyDialogue, NeedNotAsk) {
  play("echo 'h t k' >\"$file\"\n" + say(dialogue.answered() + dialogue.prompt()) + wait_forever);
  EXPECT_EQ(fetched(), "t k");
}

TEST_F(KeyDialogue, RefusesALinkInThePlaceOfTheFile) {
  write_file(lab::value("LAB") + "/precious", "h secret\n");
  play_recording("ln -s " + lab::value("LAB") + "/precious \"$file\"");
  EXPECT_EQ(error_of([] { fetched(); }),
            "5\n  - Failed to open file " + key_file() + ", ecode=" + std::to_string(ELOOP) + "\n");
}

TEST_F(KeyDialogue, WaitsForNoWriterAtAPipeInThePlaceOfTheFile) {
  play_recording("mkfifo \"$file\"");
  EXPECT_EQ(error_of([] { fetched(); }), "6\n  - Failed to read from file " + key_file() + ", ecode=0\n");
}

/* A client that still ran could write the file after its removal. */
TEST_F(KeyDialogue, StopsTheClientBeforeItRemovesTheFile) {
  play_until_stopped("[ ! -e \"$file\" ] || echo >$dir/was-there");
  EXPECT_EQ(fetched(), "t k");
  EXPECT_TRUE(std::filesystem::exists(client->path("was-there")));
  EXPECT_FALSE(file_is_left());
}

TEST_F(KeyDialogue, AKeyOf895CharactersIsTaken) {
  const std::string key = "ssh-rsa " + std::string(887, 'A');
  play_key("h " + key + "\n");
  EXPECT_EQ(fetched(), key);
  EXPECT_FALSE(file_is_left());
}

TEST_F(KeyDialogue, AKeyOf895CharactersFitsTheBufferOfC) {
  const std::string key = "ssh-rsa " + std::string(887, 'A');
  play_key("h " + key + "\n");
  char buffer[TAVREN_HOST_KEY_SIZE];
  char* error = nullptr;
  EXPECT_EQ(tavren_download_host_key("archive.example", buffer, &error), 0);
  EXPECT_EQ(buffer, key);
}

TEST_F(KeyDialogue, AKeyOf896CharactersIsTooLarge) {
  play_key("h ssh-rsa " + std::string(888, 'A') + "\n");
  EXPECT_EQ(error_of([] { fetched(); }), "9\n  - Host key is too large (896 bytes)\n");
  EXPECT_FALSE(file_is_left());
}

TEST_F(KeyDialogue, AKeyThatWasNotRecordedIsAnError) {
  play_recording("");
  EXPECT_EQ(error_of([] { fetched(); }), "5\n  - Failed to open file " + key_file() + ", ecode=2\n");
}

TEST_F(KeyDialogue, AnEmptyFileIsAnError) {
  play_key("");
  EXPECT_EQ(error_of([] { fetched(); }), "6\n  - Failed to read from file " + key_file() + ", ecode=0\n");
  EXPECT_FALSE(file_is_left());
}

TEST_F(KeyDialogue, AFileThatCannotBeReadIsAnError) {
  play_recording("mkdir \"$file\"");
  EXPECT_EQ(error_of([] { fetched(); }), "6\n  - Failed to read from file " + key_file() + ", ecode=21\n");
}

TEST_F(KeyDialogue, ALineWithoutABlankIsAnError) {
  play_key("archive.example\n");
  EXPECT_EQ(error_of([] { fetched(); }), "6\n  - Failed to read from file " + key_file() + ", ecode=22\n");
  EXPECT_FALSE(file_is_left());
}

TEST_F(KeyDialogue, AClientThatEndsIsAnErrorWithItsLastLines) {
  play(say("ssh: no route\r\n"));
  EXPECT_EQ(error_of([] { fetched(); }),
            "13\n  - Program exited unexpectedly: /usr/bin/ssh\n  - Output: \"ssh: no route\"\n");
}

TEST_F(KeyDialogue, AClientThatEndsAfterTheAnswerLeavesNoFile) {
  play(say(dialogue.introduction() + dialogue.question()) + "take yes\necho 'h t k' >\"$file\"\n");
  EXPECT_EQ(error_of([] { fetched(); }).substr(0, 3), "13\n");
  EXPECT_FALSE(file_is_left());
}

/* A client may have been about to record the key when it is told to end. */
TEST_F(KeyDialogue, AClientThatWritesTheFileWhenItIsStoppedLeavesNoFile) {
  play("trap 'echo \"h t k\" >\"$file\"; exit' TERM\n" + say(dialogue.introduction() + dialogue.question()) +
       "take yes\n" + say(dialogue.answered() + dialogue.prompt()) + "sleep 100 &\nwait\n");
  EXPECT_EQ(error_of([] { fetched(); }).substr(0, 2), "5\n");
  EXPECT_FALSE(file_is_left());
}

TEST_F(KeyDialogue, AClientThatNeverAsksIsATimeout) {
  play(wait_forever);
  const ScopedTunable timeout("ssh_connect_timeout", 1);
  EXPECT_THROW(fetched(), TavrenTimeout);
}

TEST_F(KeyDialogue, AClientThatNeverStopsTalkingIsATimeout) {
  play("while :; do echo line; done\n");
  const ScopedTunable timeout("ssh_connect_timeout", 1);
  EXPECT_THROW(fetched(), TavrenTimeout);
}

TEST_F(KeyDialogue, AClientThatNeverComesToThePromptIsATimeoutAndLeavesNoFile) {
  play(say(dialogue.introduction() + dialogue.question()) + "take yes\necho 'h t k' >\"$file\"\n" + wait_forever);
  const ScopedTunable timeout("ssh_connect_timeout", 1);
  EXPECT_THROW(fetched(), TavrenTimeout);
  EXPECT_FALSE(file_is_left());
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
  CancelledKeyDownload() {
    play(say(dialogue.introduction() + dialogue.question()) + "take yes\necho 'h t k' >\"$file\"\n" + wait_forever);
  }
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

class KeyDownloadFault : public KeyDialogue, public testing::WithParamInterface<Named<const char*>> {};

TEST_P(KeyDownloadFault, ThatKeepsTheClientFromStartingIsASystemCallError) {
  const Faulty call(GetParam().value, EMFILE);
  char key[TAVREN_HOST_KEY_SIZE];
  char* error = nullptr;
  EXPECT_EQ(tavren_download_host_key("archive.example", key, &error), -1);
  EXPECT_EQ(error, std::string("  - System call \"") + GetParam().name + "\" failed with error code 24\n");
  free(error);
}

INSTANTIATE_TEST_SUITE_P(Calls, KeyDownloadFault,
                         testing::Values(Named<const char*>{"pipe", "pipe2"}, Named<const char*>{"forkpty", "forkpty"}),
                         by_name);

TEST_F(KeyDialogue, WithoutAPrivateDirectoryIsAFailedAssertion) {
  tavren_cleanup_tmp_dir();
  expect_assertion("TavrenKeyDownloader", "tavren_get_tmp_dir() != NULL", [] { fetched(); });
}

}  // namespace
