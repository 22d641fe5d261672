#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <string>

#include "keys/fingerprint_fixture.h"
#include "process/hosts.h"
#include "support/process_state.h"
#include "support/run_in_child.h"

namespace {

/* A host program that leaves the library no child to ask how the key generator's work went. */
class FingerprintInAHost : public FingerprintTest, public testing::WithParamInterface<Named<Host>> {
 protected:
  /* The same as fingerprint, in a process of its own, as such a host does not fit the test runner. */
  static std::string fingerprint_there(const std::string& key) {
    const Outcome outcome = run_in_child([&key] {
      GetParam().value.begin();
      fputs(fingerprint(key).c_str(), stdout);
    });
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.err;
    return outcome.out;
  }
};

TEST_P(FingerprintInAHost, IsTheKeyGeneratorsOrAnInvalidKey) {
  const std::string key = make_key("-t ed25519");
  EXPECT_EQ(fingerprint_there(key), listed_fingerprint());
  EXPECT_EQ(fingerprint_there("not a key"), "The specified public host key is invalid or incomplete.");
  EXPECT_EQ(files_left(), "");
}

class FingerprintInAHostWithoutStreams : public FingerprintTest {};

/* A descriptor that the host lacks may be any of the three, or all of them. */
TEST_F(FingerprintInAHostWithoutStreams, OfAGoodKeyIsTheKeyGeneratorsAndLeavesNoDescriptor) {
  const std::string key = make_key("-t ed25519");
  for (unsigned missing = 1; missing < 8; ++missing) {
    run_in_child([&] {
      for (int fd = 0; fd < 3; ++fd) {
        if ((missing >> fd & 1) != 0) close(fd);
      }
      const auto before = count_open_descriptors();
      const std::string result = fingerprint(key);
      const auto after = count_open_descriptors();
      write_file(lab::value("LAB") + "/result", result + (after == before ? "" : " and descriptors left"));
    });
    EXPECT_EQ(read_file(lab::value("LAB") + "/result"), listed_fingerprint()) << missing;
  }
}

INSTANTIATE_TEST_SUITE_P(Hosts, FingerprintInAHost, testing::ValuesIn(hosts_that_reap), by_name);

}  // namespace
