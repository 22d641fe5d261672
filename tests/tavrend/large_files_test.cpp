#include "support/temporary_directory.h"
#include "tavrend/procedures_fixture.h"

namespace {

class LargeFile : public Procedure {};

}  // namespace

/*
 * The copy protocol has no number for more than 4 GiB - 1. Holes take no room in memory, and little once compressed; a
 * disk's file system would have a page for each of a hole that is read.
 */
TEST_F(LargeFile, GoesInParts) {
  const TemporaryDirectory memory("/dev/shm");
  const std::string file = memory.path("a.1");
  constexpr auto in_an_item = "4227858431"; /* bytes: 64 MiB less, because what cannot be compressed gets longer */
  lab::run("truncate -s 4G " + file + " && for place in 0 " + in_an_item +
           " 4294967290; do echo \"at $place\" | dd of=" + file +
           " bs=1M oflag=seek_bytes seek=$place conv=notrunc status=none; done");
  start("[closed]\nfiles = " + file + "\ninterval = 1\ncompress = zstd\n");
  ASSERT_EQ(set_config(), 0);
  /* Four gigabytes are to be compressed, and other tests run at the same time. */
  wait_until(
      "a part", [] { return archived_since_the_start(1) == 1; }, 600);
  wait_until("the rest", [] { return archived_since_the_start(1) == 2; });
  EXPECT_EQ(system(("zstd -dc $LAB_ARCHIVE/closed/* | cmp - " + file).c_str()), 0);
  EXPECT_EQ(items("closed").size(), 2U);
  EXPECT_EQ(errors(), "");
}

/* Each of its parts would, and the second one would make the first one go. */
TEST_F(LargeFile, WhosePartsHaveNoRoomTogetherIsLargerThanTheLimit) {
  const TemporaryDirectory memory("/dev/shm");
  const std::string file = memory.path("a.1");
  lab::run("truncate -s 5G " + file);
  start("[closed]\nfiles = " + file + "\ninterval = 1\n");
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 4200), 0);
  wait_until("an error or an item", [] { return !errors().empty() || !items("closed").empty(); });
  EXPECT_NE(errors().find("  - System call \"limit\" failed with error code 27"), std::string::npos) << errors();
  EXPECT_EQ(items("closed").size(), 0U);
}
