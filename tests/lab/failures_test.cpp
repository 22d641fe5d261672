#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "TavrenExceptions.h"
#include "lab/lab.h"
#include "support/files.h"
#include "tavren_basic.h"

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/* The far side fails: what comes back is the stated error, with the far side's own words, inside the deadline. */
class FarSide : public LabTest {
 protected:
  FarSide() : command_timeout("ssh_command_timeout", timeout), started(tavren_get_uptime()) {}

  /* However many steps a failing transfer takes, none waits longer than a step may. */
  ~FarSide() override { EXPECT_LE(tavren_get_uptime() - started, 3 * timeout + 30); }

  std::string error_of_sending(size_t size, const std::string& name) {
    TavrenHost& host = connected_session();
    const std::string content(size, 'x');
    return error_of([&] { host.send_data(content.data(), static_cast<int>(size), name, 0644); });
  }

 private:
  static constexpr int timeout = 10;
  const ScopedTunable command_timeout;
  const int started;
};

TEST_F(FarSide, WithoutScpShowsTheShellsWordsWhole) {
  TavrenHost& host = connected_session();
  host.run_line("PATH=/nowhere", nullptr);
  const std::string error = error_of([&] { host.send_data("x", 1, "file", 0644); });
  EXPECT_THAT(error, StartsWith("14\n  - Remote command \"scp -q -t 'file'\" failed with error code "));
  EXPECT_THAT(error, HasSubstr("Command output: \"/bin/sh: "));
  EXPECT_THAT(error, HasSubstr("scp: not found\"\n"));
}

TEST_F(FarSide, WithANameThatIsTooLongOrAReadOnlyDirectoryShowsTheSinksWords) {
  EXPECT_THAT(error_of_sending(1, std::string(300, 'n')), HasSubstr("File name too long"));
  lab::run("chmod 555 $LAB_ARCHIVE");
  const std::string error = error_of_sending(1, "file");
  EXPECT_THAT(error, StartsWith("14\n  - Remote command \"scp -q -t 'file'\" failed with error code 1\n"));
  EXPECT_THAT(error, HasSubstr("scp: file: Permission denied"));
}

TEST_F(FarSide, WithAFullDiskShowsTheWordsOfTheSinkAndOfAStreamsWriter) {
  lab::change_machine("mkdir $LAB_ARCHIVE/small; mount -t tmpfs -o size=64k,mode=777 tmpfs $LAB_ARCHIVE/small");
  EXPECT_THAT(error_of_sending(1 << 20, "small/file"),
              AllOf(HasSubstr("Remote command \"scp -q -t 'small/file'\" "), HasSubstr("No space left on device")));
  lab::run("rm -f $LAB_ARCHIVE/small/file"); /* so that the writer has room to begin with */
  TavrenHost& host = connected_session();
  const std::string content(1 << 20, 'x');
  const std::string error = error_of([&] {
    host.start_send_stream("small/stream");
    host.continue_send_stream(content.data(), 1 << 20);
    host.end_send_stream();
  });
  EXPECT_THAT(error,
              AllOf(StartsWith("10\n"), HasSubstr("No space left on device"), HasSubstr("Expected output: \"\"")));
}

TEST_F(FarSide, ThatCannotOpenAStreamsFileExecutesNoneOfItsData) {
  TavrenHost& host = connected_session();
  const std::string error = error_of([&] {
    host.start_send_stream("no-such-directory/stream");
    host.continue_send_stream("\ntouch executed\n", 16);
    host.end_send_stream();
  });
  EXPECT_THAT(error, HasSubstr("cannot create no-such-directory/stream"));
  EXPECT_NE(access(lab::archived("executed").c_str(), F_OK), 0);
}

TEST_F(FarSide, KilledInTheMiddleOfAFileIsAnEndOfTheProgram) {
  TavrenHost& host = connected_session();
  const std::string content(100000, 'x');
  host.start_send_file("file", 1000000000, 0644);
  host.continue_send_file(content.data(), 100000);
  lab::kill_sshd_and_sessions();
  const std::string error = error_of([&] {
    for (int i = 0; i < 9999; ++i) host.continue_send_file(content.data(), 100000);
    host.end_send_file();
  });
  EXPECT_THAT(error, AnyOf(StartsWith("13\n"), StartsWith("10\n")));
  EXPECT_THAT(error, AnyOf(HasSubstr("closed by"), HasSubstr("reset by"), HasSubstr("Broken pipe")));
}

TEST_F(FarSide, KilledInTheMiddleOfACommandIsAnEndOfTheProgram) {
  TavrenHost& host = connected_session();
  std::thread killer([] {
    lab::run("while [ ! -e $LAB_ARCHIVE/begun ]; do sleep 0.01; done");
    lab::kill_sshd_and_sessions();
  });
  const std::string error = error_of([&] { host.run_and_check_ecode("touch begun; sleep 100"); });
  killer.join();
  EXPECT_THAT(error, StartsWith("13\n  - Program exited unexpectedly: /usr/bin/ssh\n"));
  EXPECT_THAT(error, AnyOf(HasSubstr("closed by"), HasSubstr("reset by")));
}

TEST_F(FarSide, WhoseShellExitsIsAnEndOfTheProgramAndThatHangsInACommandATimeout) {
  TavrenHost& exiting = connected_session();
  EXPECT_THAT(error_of([&] { exiting.run_and_check_ecode("echo last words; exit 3"); }),
              AllOf(StartsWith("13\n"), HasSubstr("Output: \"last words\"")));
  const ScopedTunable soon("ssh_command_timeout", 1);
  TavrenHost& host = connected_session();
  EXPECT_EQ(error_of([&] { host.run_and_check_ecode("sleep 100"); }),
            "17\n  - Timeout occurred while running remote command: \"sleep 100\"\n");
}

TEST_F(FarSide, ThatStoppedReadingDoesNotHoldUpAStreamForEver) {
  const ScopedTunable soon("ssh_command_timeout", 2);
  TavrenHost& host = connected_session();
  std::string message;
  TavrenHost::set_cmd("cat", "sleep 100; cat", message);
  const std::string content(8 << 20, 'x');
  bool timed_out = false;
  std::string error;
  try {
    error = error_of([&] {
      host.start_send_stream("stream");
      host.continue_send_stream(content.data(), 8 << 20);
      host.end_send_stream();
    });
  } catch (const TavrenTimeout&) {
    timed_out = true;
  }
  EXPECT_TRUE(timed_out) << error;
  TavrenHost::reset_cmd_map();
}

}  // namespace
