#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "TavrenError.h"
#include "host/odd_names.h"
#include "host/transfer_fixture.h"

/*
 * Names that a file may have on the far side, and the only ones that it may not have.
 */
namespace {

class TransferName : public TransferTest, public testing::WithParamInterface<Named<const char*>> {};

/* A newline, where the protocol's header has no place for it. */
class TransferNewline : public TransferTest {
 protected:
  void send(const std::string& path) { host.send_data("content", 7, path, 0644); }
};

}  // namespace

TEST_P(TransferName, IsKept) {
  host.send_data("content", 7, GetParam().value, 0644);
  EXPECT_EQ(received(GetParam().value), "content");
}

TEST_P(TransferName, IsKeptInADirectoryOfTheSameName) {
  const std::string name = GetParam().value;
  std::filesystem::create_directory(directory.path(name));
  host.send_data("content", 7, name + "/" + name, 0644);
  EXPECT_EQ(received(name + "/" + name), "content");
}

INSTANTIATE_TEST_SUITE_P(, TransferName, testing::ValuesIn(odd_names), by_name);

TEST_F(TransferNewline, InTheNameIsRefused) {
  EXPECT_EQ(error_body([this] { send("dir/two\nlines"); }),
            "  - Unable to create file dir/two\nlines on remote host\n");
}

TEST_F(TransferNewline, AtTheEndOfTheNameIsRefused) {
  EXPECT_EQ(error_body([this] { send("line\n"); }), "  - Unable to create file line\n on remote host\n");
}

TEST_F(TransferNewline, InTheNameIsRefusedBeforeAnythingIsSent) {
  recorded_system::record_writes();
  EXPECT_THROW(send("two\nlines"), TavrenError);
  EXPECT_EQ(recorded_system::take_writes(), std::vector<std::string>{});
}

TEST_F(TransferNewline, InTheNameLeavesTheSessionUsable) {
  EXPECT_THROW(send("two\nlines"), TavrenError);
  EXPECT_EQ(output_of(host, "echo ready"), "ready");
}

TEST_F(TransferNewline, InTheDirectoryIsKept) {
  std::filesystem::create_directory(directory.path("two\nlines"));
  send("two\nlines/file");
  EXPECT_EQ(received("two\nlines/file"), "content");
}
