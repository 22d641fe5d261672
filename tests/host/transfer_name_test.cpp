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

class TransferName : public TransferTest {
 protected:
  void send(const std::string& path) { host.send_data("content", 7, path, 0644); }
};

}  // namespace

TEST_F(TransferName, IsKeptAlsoInADirectoryOfTheSameName) {
  for (const auto& [what, odd_name] : odd_names) {
    SCOPED_TRACE(what);
    const std::string name = odd_name;
    const bool is_refused = name.find('\n') != std::string::npos;
    if (!is_refused) {
      send(name);
      EXPECT_EQ(received(name), "content");
      std::filesystem::remove(directory.path(name));
    }
    const std::string path = name + "/" + (is_refused ? "file" : name);
    std::filesystem::create_directory(directory.path(name));
    send(path);
    EXPECT_EQ(received(path), "content");
  }
}

/* A newline, where the protocol's header has no place for it. */
TEST_F(TransferName, WithANewlineIsRefusedBeforeAnythingIsSent) {
  recorded_system::record_writes();
  for (const std::string path : {"dir/two\nlines", "line\n"}) {
    EXPECT_EQ(error_body([&] { send(path); }), "  - Unable to create file " + path + " on remote host\n");
  }
  EXPECT_EQ(recorded_system::take_writes(), std::vector<std::string>{});
  EXPECT_EQ(output_of(host, "echo ready"), "ready");
}
