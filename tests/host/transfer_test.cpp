#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "TavrenExceptions.h"
#include "host/transfer_fixture.h"
#include "support/run_in_child.h"

namespace {

/* A file of the test's own, open for reading. */
class OpenFile {
 public:
  OpenFile(const std::string& path, const std::string& content) {
    write_file(path, content);
    descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  }
  ~OpenFile() { close(descriptor); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  operator int() const { return descriptor; }

 private:
  int descriptor;
};

class Transfer : public TransferTest {
 protected:
  /* Sends size bytes of memory. Returns the writes that it took. */
  std::vector<std::string> writes_for(int size, const std::string& path, unsigned int mode) {
    const std::string data = some_bytes(static_cast<size_t>(size));
    recorded_system::record_writes();
    host.send_data(data.data(), size, path, mode);
    return recorded_system::take_writes();
  }

  /* Starts a file with a sink that takes any header. Returns the header. */
  std::string header_for(const std::string& path, uint32_t size, unsigned int mode) {
    use_sink("printf '\\0'; next_line header; printf '\\0'; exec sleep 100");
    host.start_send_file(path, size, mode);
    return sink->taken("header");
  }

  const TemporaryDirectory local;
};

class TransferSize : public Transfer, public testing::WithParamInterface<int> {};

}  // namespace

TEST_F(Transfer, IsFramedByItsMarkers) {
  EXPECT_EQ(writes_for(10, "file", 0644).front(),
            "echo '_TAV/REN_' BEGIN; scp -q -t 'file'; echo; echo '_TAV/REN_' END\n");
}

TEST_F(Transfer, SendsItsHeader) { EXPECT_EQ(writes_for(10, "file", 420)[1], "C0644 10 file\n"); }

TEST_F(Transfer, SendsItsDataInPieces) {
  const std::string data = some_bytes(5000);
  const std::vector<std::string> writes = writes_for(5000, "file", 0644);
  ASSERT_EQ(writes.size(), 6u);
  EXPECT_EQ(writes[2], data.substr(0, 2048));
  EXPECT_EQ(writes[3], data.substr(2048, 2048));
  EXPECT_EQ(writes[4], data.substr(4096, 904));
}

TEST_F(Transfer, OfADescriptorSendsItsDataInPieces) {
  const std::string data = some_bytes(5000);
  const OpenFile file(local.path("file"), data);
  recorded_system::record_writes();
  host.send_file(file, "log", "file", 5000, 0644);
  const std::vector<std::string> writes = recorded_system::take_writes();
  ASSERT_EQ(writes.size(), 6u);
  EXPECT_EQ(writes[2], data.substr(0, 2048));
  EXPECT_EQ(writes[3], data.substr(2048, 2048));
  EXPECT_EQ(writes[4], data.substr(4096, 904));
}

TEST_F(Transfer, EndsWithThreeBytes) { EXPECT_EQ(writes_for(5000, "file", 0644).back(), std::string("\0E\n", 3)); }

TEST_F(Transfer, OfNothingIsAHeaderAndAnEnd) {
  const std::vector<std::string> writes = writes_for(0, "file", 0644);
  ASSERT_EQ(writes.size(), 3u);
  EXPECT_EQ(writes[1], "C0644 0 file\n");
  EXPECT_EQ(writes[2], std::string("\0E\n", 3));
}

TEST_F(Transfer, NamesTheFileWithoutItsDirectoryInTheHeader) {
  EXPECT_EQ(header_for("some/dir/file", 10, 0644), "C0644 10 file\n");
}

TEST_F(Transfer, PadsTheModeToFourDigits) { EXPECT_EQ(header_for("file", 10, 07), "C0007 10 file\n"); }

TEST_F(Transfer, DoesNotCutTheMode) { EXPECT_EQ(header_for("file", 10, 0104755), "C104755 10 file\n"); }

TEST_F(Transfer, HasRoomForTheLargestModeAndSize) {
  EXPECT_EQ(header_for("file", 4294967295U, 4294967295U), "C37777777777 4294967295 file\n");
}

TEST_F(Transfer, AnnouncesTheLargestSize) {
  EXPECT_EQ(header_for("file", 4294967295U, 0644), "C0644 4294967295 file\n");
}

TEST_F(Transfer, AnnouncesASizeBeyondTheSignedNumbers) {
  EXPECT_EQ(header_for("file", 2147483648U, 0644), "C0644 2147483648 file\n");
}

TEST_F(Transfer, QuotesThePathForTheShell) {
  header_for("it's $(x)", 10, 0644);
  EXPECT_EQ(sink->arguments(), std::vector<std::string>{"it's $(x)"});
}

TEST_P(TransferSize, OfMemoryArrivesWhole) {
  const std::string data = some_bytes(static_cast<size_t>(GetParam()));
  host.send_data(data.data(), GetParam(), "file", 0644);
  EXPECT_EQ(received("file"), data);
}

TEST_P(TransferSize, OfADescriptorArrivesWhole) {
  const std::string data = some_bytes(static_cast<size_t>(GetParam()));
  const OpenFile file(local.path("file"), data);
  host.send_file(file, "log", "file", GetParam(), 0644);
  EXPECT_EQ(received("file"), data);
}

INSTANTIATE_TEST_SUITE_P(, TransferSize,
                         testing::Values(0, 1, 2, 1023, 1024, 1025, 2047, 2048, 2049, 4095, 4096, 4097, 5000, 65535,
                                         65536, 65537, 1000000),
                         testing::PrintToStringParamName());

TEST_F(Transfer, SizesUpTo5000ArriveWhole) {
  /* A prime step, so that all remainders of the pieces turn up. */
  for (int size = 0; size <= 5000; size += 97) {
    const std::string data = some_bytes(static_cast<size_t>(size));
    host.send_data(data.data(), size, "file", 0644);
    ASSERT_EQ(received("file"), data) << size;
  }
}

TEST_F(Transfer, GivesTheFileItsMode) {
  host.send_data("x", 1, "file", 0640);
  struct stat status {};
  ASSERT_EQ(stat(directory.path("file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST_F(Transfer, ReplacesAnOlderFile) {
  write_file(directory.path("file"), "something much longer");
  host.send_data("new", 3, "file", 0644);
  EXPECT_EQ(received("file"), "new");
}

TEST_F(Transfer, OfANameWithALeadingHyphenPassesAPathToTheCopyProgram) {
  header_for("-name", 10, 0644);
  EXPECT_EQ(sink->arguments(), std::vector<std::string>{"./-name"});
  EXPECT_EQ(sink->taken("header"), "C0644 10 -name\n");
}

TEST_F(Transfer, OfADescriptorFindsTheSizeOut) {
  const std::string data = some_bytes(3000);
  const OpenFile file(local.path("file"), data);
  host.send_file(file, "log", "file", -1, 0644);
  EXPECT_EQ(received("file"), data);
}

TEST_F(Transfer, FindingTheSizeOutStartsAtTheFront) {
  const OpenFile file(local.path("file"), "content");
  lseek(file, 3, SEEK_SET);
  host.send_file(file, "log", "file", -2, 0644);
  EXPECT_EQ(received("file"), "content");
}

TEST_F(Transfer, OfAnEmptyFileFindsItsSizeOut) {
  const OpenFile file(local.path("file"), "");
  host.send_file(file, "log", "file", -1, 0644);
  EXPECT_EQ(received("file"), "");
}

TEST_F(Transfer, OfAFileThatGrewSendsWhatWasAnnounced) {
  const OpenFile file(local.path("file"), some_bytes(5000));
  host.send_file(file, "log", "file", 3000, 0644);
  EXPECT_EQ(received("file"), some_bytes(3000));
}

TEST_F(Transfer, OfAFileThatIsShorterIsASystemCallError) {
  const OpenFile file(local.path("file"), some_bytes(2500));
  EXPECT_EQ(error_body([&] { host.send_file(file, "the log", "file", 3000, 0644); }),
            "  - System call \"read(the log)\" failed with error code 0\n");
}

TEST_F(Transfer, OfADescriptorThatReadsInOddPiecesArrivesWhole) {
  const std::string data = some_bytes(5000);
  int ends[2];
  /* Each read returns what one write wrote. */
  ASSERT_EQ(pipe2(ends, O_DIRECT | O_CLOEXEC), 0);
  size_t written = 0;
  for (const size_t size : std::vector<size_t>{1000, 1, 2048, 1951}) {
    ASSERT_EQ(write(ends[1], data.data() + written, size), static_cast<ssize_t>(size));
    written += size;
  }
  host.send_file(ends[0], "log", "file", 5000, 0644);
  close(ends[0]);
  close(ends[1]);
  EXPECT_EQ(received("file"), data);
}

TEST_F(Transfer, OfAnUnreadableDescriptorIsASystemCallError) {
  const int file = ::open(local.path("file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  EXPECT_EQ(error_body([&] { host.send_file(file, "the log", "file", 10, 0644); }),
            "  - System call \"read(the log)\" failed with error code " + std::to_string(EBADF) + "\n");
  close(file);
}

TEST_F(Transfer, OfADescriptorWithoutASizeIsASystemCallError) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  EXPECT_EQ(error_body([&] { host.send_file(ends[0], "the log", "file", -1, 0644); }),
            "  - System call \"lseek(the log)\" failed with error code " + std::to_string(ESPIPE) + "\n");
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Transfer, OfANegativeSizeIsAFailedAssertion) {
  expect_assertion("TavrenHost", "size >= 0", [this] { host.send_data("x", -1, "file", 0644); });
}

TEST_F(Transfer, ContinuingWithoutAStartIsAFailedAssertion) {
  expect_assertion("TavrenHost", "running_command.size() != 0", [this] { host.continue_send_file("x", 1); });
}

TEST_F(Transfer, EndingWithoutAStartIsAFailedAssertion) {
  expect_assertion("TavrenHost", "running_command.size() != 0", [this] { host.end_send_file(); });
}

TEST_F(Transfer, EndingTwiceIsAFailedAssertion) {
  host.send_data("x", 1, "file", 0644);
  expect_assertion("TavrenHost", "running_command.size() != 0", [this] { host.end_send_file(); });
}

TEST_F(Transfer, LeavesTheShellToFurtherWork) {
  host.send_data("x", 1, "file", 0644);
  EXPECT_EQ(output_of(host, "cat file; echo"), "x");
}

TEST_F(Transfer, InProgressKeepsTheShellToItself) {
  host.start_send_file("file", 10, 0644);
  expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
}

TEST_F(Transfer, ThatFailedKeepsTheShellToItself) {
  use_sink("printf '\\002no\\n'; exec sleep 100");
  EXPECT_THROW(host.start_send_file("file", 10, 0644), TavrenError);
  expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
}

TEST_F(Transfer, ThatMetAComplaintKeepsTheShellToItself) {
  use_sink("printf '\\0'; next_line header; printf '\\0complaint\\n'; exec sleep 100");
  EXPECT_THROW(host.send_data("abc", 3, "file", 0644), TavrenError);
  expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
}

TEST_F(Transfer, ThatFailedAtItsEndKeepsTheShellToItself) {
  use_sink("printf '\\0'; next_line header; printf '\\0'; head -c 4; printf '\\002no\\n'; exec sleep 100");
  EXPECT_THROW(host.send_data("abc", 3, "file", 0644), TavrenError);
  expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
}

TEST_F(Transfer, ThatWasCancelledAtItsEndKeepsTheShellToItself) {
  use_sink("printf '\\0'; next_line header; printf '\\0'; exec sleep 100");
  host.start_send_file("file", 3, 0644);
  host.continue_send_file("abc", 3);
  host.disable();
  EXPECT_THROW(host.end_send_file(), TavrenOperationCancelled);
  expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
}

TEST_F(Transfer, OfAFileThatIsShorterKeepsTheShellToItself) {
  const OpenFile file(local.path("file"), "content");
  EXPECT_THROW(host.send_file(file, "the log", "file", 10, 0644), TavrenError);
  expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
}

TEST_F(Transfer, ThatFailedIsForgottenByANewConnection) {
  use_sink("printf '\\002no\\n'; exec sleep 100");
  EXPECT_THROW(host.start_send_file("file", 10, 0644), TavrenError);
  host.close_connection();
  host.open_connection();
  EXPECT_EQ(output_of(host, "pwd"), directory.path());
}
