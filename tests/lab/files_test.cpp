#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lab/lab.h"
#include "support/files.h"
#include "support/random_bytes.h"

namespace {

/* The sizes around the pieces that a file is sent in, and a large one. */
class FileSize : public LabTest, public testing::WithParamInterface<size_t> {};

TEST_P(FileSize, ArrivesWholeFromADescriptorAndFromMemory) {
  const std::string content = random_bytes(GetParam(), GetParam());
  const std::string local = lab::value("LAB") + "/local";
  write_file(local, content);
  TavrenHost& host = connected_session();

  const int fd = open(local.c_str(), O_RDONLY | O_CLOEXEC);
  host.send_file(fd, local, "from-descriptor", -1, 0644);
  close(fd);
  host.send_data(content.data(), static_cast<int>(content.size()), "from-memory", 0644);

  lab::run("cmp $LAB/local $LAB_ARCHIVE/from-descriptor && cmp $LAB/local $LAB_ARCHIVE/from-memory");
}

INSTANTIATE_TEST_SUITE_P(Bytes, FileSize, testing::Values(0, 1, 2047, 2048, 2049, 5000, 64 << 20),
                         testing::PrintToStringParamName());

class FileName : public LabTest {};

TEST_F(FileName, CanBeProbedSentRemovedAndStreamedTo) {
  for (const std::string name : {"two words", " blanks around ", "it's", "a \"b\" 'c'", "$(x) `y` $HOME", "-rf",
                                 "--help", "\xc3\xa4\xe2\x82\xac.log", "\xe4.log", "back\\slash\\n", "#;&|<>*?"}) {
    SCOPED_TRACE(name);
    TavrenHost& host = connected_session(); /* a stream ends one */
    host.try_to_create_file(name);
    host.run_and_check_ecode("true"); /* the removal is not waited for, but it comes before the next command */
    EXPECT_NE(access(lab::archived(name).c_str(), F_OK), 0);
    host.send_data(name.data(), static_cast<int>(name.size()), name, 0644);
    EXPECT_EQ(read_file(lab::archived(name)), name);
    host.remove_file(name);
    EXPECT_NE(access(lab::archived(name).c_str(), F_OK), 0);
    host.start_send_stream(name);
    host.continue_send_stream("stream\n", 7);
    host.end_send_stream();
    EXPECT_EQ(read_file(lab::archived(name)), "stream\n");
  }
}

class Files : public LabTest {};

TEST_F(Files, HaveTheirModesInTheArchive) {
  TavrenHost& host = connected_session();
  for (const unsigned int mode : {0600U, 0644U, 0755U}) {
    const std::string name = "mode " + std::to_string(mode);
    host.send_data("x", 1, name, mode);
    struct stat status {};
    ASSERT_EQ(stat(lab::archived(name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, mode);
  }
}

TEST_F(Files, ManyGoThroughOneSession) {
  TavrenHost& host = connected_session();
  for (int i = 0; i < 50; ++i) {
    const size_t size = static_cast<size_t>(i) * 997;
    const std::string content = random_bytes(size, size);
    const std::string name = "file " + std::to_string(i);
    host.send_data(content.data(), static_cast<int>(content.size()), name, 0644);
    ASSERT_EQ(read_file(lab::archived(name)), content) << name;
  }
}

TEST_F(Files, AndCommandsTakeTurnsInOneSession) {
  TavrenHost& host = connected_session();
  host.make_directory("a/b");
  host.send_data("one\n", 4, "a/b/2000-01-01", 0644);
  host.send_data("two\n", 4, "a/b/2000-01-02", 0644);
  host.run_and_expect_line("/bin/cat a/b/2000-01-01", "one");
  EXPECT_TRUE(host.remove_first_file("a/b"));
  std::list<std::string> lines;
  host.run_and_check_ecode("/bin/ls a/b", lines);
  EXPECT_EQ(lines, std::list<std::string>{"2000-01-02"});
}

}  // namespace
