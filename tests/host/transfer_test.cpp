#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
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
  /* Starts a file with a sink that takes any header, in a session of its own. Returns the header. */
  std::string header_for(const std::string& path, uint32_t size, unsigned int mode) {
    start_over();
    use_sink("printf '\\0'; next_line header; printf '\\0'; exec sleep 100");
    host.start_send_file(path, size, mode);
    return sink->taken("header");
  }

  void expect_shell_kept() {
    expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
  }

  const TemporaryDirectory local;
};

}  // namespace

TEST_F(Transfer, IsItsHeaderItsDataInPiecesAndThreeBytesBetweenItsMarkers) {
  const std::string data = some_bytes(5000);
  const std::string begin = "echo '_TAV/REN_' BEGIN; scp -q -t 'file'; echo; echo '_TAV/REN_' END\n";
  const std::string end("\0E\n", 3);
  const std::vector<std::string> pieces = {
      begin, "C0644 5000 file\n", data.substr(0, 2048), data.substr(2048, 2048), data.substr(4096), end};
  recorded_system::record_writes();
  host.send_data(data.data(), 5000, "file", 420);
  EXPECT_EQ(recorded_system::take_writes(), pieces);
  const OpenFile file(local.path("file"), data);
  host.send_file(file, "log", "file", 5000, 0644);
  EXPECT_EQ(recorded_system::take_writes(), pieces);
  host.send_data("", 0, "file", 0644);
  EXPECT_EQ(recorded_system::take_writes(), (std::vector<std::string>{begin, "C0644 0 file\n", end}));
}

TEST_F(Transfer, AnnouncesTheModeTheSizeAndTheNameInItsHeader) {
  EXPECT_EQ(header_for("some/dir/file", 10, 0644), "C0644 10 file\n");
  EXPECT_EQ(header_for("file", 10, 07), "C0007 10 file\n");
  EXPECT_EQ(header_for("file", 10, 0104755), "C104755 10 file\n");
  EXPECT_EQ(header_for("file", 2147483648U, 0644), "C0644 2147483648 file\n");
  EXPECT_EQ(header_for("file", 4294967295U, 0644), "C0644 4294967295 file\n");
  EXPECT_EQ(header_for("file", 4294967295U, 4294967295U), "C37777777777 4294967295 file\n");
}

TEST_F(Transfer, GivesTheCopyProgramThePathAsItIsOrBehindAPointWhereItLooksLikeAnOption) {
  header_for("it's $(x)", 10, 0644);
  EXPECT_EQ(sink->arguments(), std::vector<std::string>{"it's $(x)"});
  EXPECT_EQ(header_for("-name", 10, 0644), "C0644 10 -name\n");
  EXPECT_EQ(sink->arguments(), std::vector<std::string>{"./-name"});
}

TEST_F(Transfer, OfAnySizeArrivesWholeFromMemoryAndFromADescriptor) {
  std::vector<int> sizes = {1,    2,    1023, 1024, 1025,  2047,  2048,  2049,
                            4095, 4096, 4097, 5000, 65535, 65536, 65537, 1000000};
  /* A prime step, so that all remainders of the pieces turn up. */
  for (int size = 0; size <= 5000; size += 97) sizes.push_back(size);
  for (const int size : sizes) {
    const std::string data = some_bytes(static_cast<size_t>(size));
    const OpenFile file(local.path("file"), data);
    host.send_data(data.data(), size, "from memory", 0644);
    host.send_file(file, "log", "from a descriptor", size, 0644);
    ASSERT_TRUE(received("from memory") == data) << size;
    ASSERT_TRUE(received("from a descriptor") == data) << size;
  }
}

TEST_F(Transfer, ReplacesAnOlderFileGivesItItsModeAndLeavesTheShellToFurtherWork) {
  host.send_data("something much longer", 21, "file", 0640);
  EXPECT_EQ(std::filesystem::status(directory.path("file")).permissions(), static_cast<std::filesystem::perms>(0640));
  host.send_data("new", 3, "file", 0640);
  EXPECT_EQ(output_of(host, "cat file; echo"), "new");
}

TEST_F(Transfer, OfADescriptorFindsTheSizeOutAndStartsAtTheFront) {
  for (const auto& [content, size] : {std::pair{some_bytes(3000), -1}, {"content", -2}, {"", -1}}) {
    const OpenFile file(local.path("file"), content);
    lseek(file, 3, SEEK_SET);
    host.send_file(file, "log", "file", size, 0644);
    EXPECT_EQ(received("file"), content);
  }
}

TEST_F(Transfer, OfAFileThatGrewSendsWhatWasAnnounced) {
  const OpenFile file(local.path("file"), some_bytes(5000));
  host.send_file(file, "log", "file", 3000, 0644);
  EXPECT_EQ(received("file"), some_bytes(3000));
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

TEST_F(Transfer, OfADescriptorThatCannotBeReadOrHasNoSizeIsASystemCallError) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  EXPECT_EQ(error_body([&] { host.send_file(ends[0], "the log", "file", -1, 0644); }),
            "  - System call \"lseek(the log)\" failed with error code " + std::to_string(ESPIPE) + "\n");
  EXPECT_EQ(error_body([&] { host.send_file(ends[1], "the log", "file", 10, 0644); }),
            "  - System call \"read(the log)\" failed with error code " + std::to_string(EBADF) + "\n");
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Transfer, OfANegativeSizeIsAFailedAssertion) {
  expect_assertion("TavrenHost", "size >= 0", [this] { host.send_data("x", -1, "file", 0644); });
}

TEST_F(Transfer, ContinuingOrEndingWithoutAStartAndEndingTwiceAreFailedAssertions) {
  const std::string expression = "running_command.size() != 0";
  expect_assertion("TavrenHost", expression, [this] { host.continue_send_file("x", 1); });
  expect_assertion("TavrenHost", expression, [this] { host.end_send_file(); });
  host.send_data("x", 1, "file", 0644);
  expect_assertion("TavrenHost", expression, [this] { host.end_send_file(); });
}

TEST_F(Transfer, InProgressKeepsTheShellToItself) {
  host.start_send_file("file", 10, 0644);
  expect_shell_kept();
}

TEST_F(Transfer, ThatFailedKeepsTheShellToItself) {
  for (const std::string sink_says : {"printf '\\002no\\n'", "printf '\\0'; next_line header; printf '\\0complaint\\n'",
                                      "printf '\\0'; next_line header; printf '\\0'; head -c 4; printf '\\002no\\n'"}) {
    SCOPED_TRACE(sink_says);
    start_over();
    use_sink(sink_says + "; exec sleep 100");
    EXPECT_THROW(host.send_data("abc", 3, "file", 0644), TavrenError);
    expect_shell_kept();
  }
}

TEST_F(Transfer, ThatWasCancelledAtItsEndKeepsTheShellToItself) {
  use_sink("printf '\\0'; next_line header; printf '\\0'; exec sleep 100");
  host.start_send_file("file", 3, 0644);
  host.continue_send_file("abc", 3);
  host.disable();
  EXPECT_THROW(host.end_send_file(), TavrenOperationCancelled);
  expect_shell_kept();
}

TEST_F(Transfer, OfAFileThatIsShorterIsASystemCallErrorThatKeepsTheShellToItself) {
  const OpenFile file(local.path("file"), some_bytes(2500));
  EXPECT_EQ(error_body([&] { host.send_file(file, "the log", "file", 3000, 0644); }),
            "  - System call \"read(the log)\" failed with error code 0\n");
  expect_shell_kept();
}

TEST_F(Transfer, ThatFailedIsForgottenByANewConnection) {
  use_sink("printf '\\002no\\n'; exec sleep 100");
  EXPECT_THROW(host.start_send_file("file", 10, 0644), TavrenError);
  start_over();
  EXPECT_EQ(output_of(host, "pwd"), directory.path());
}
