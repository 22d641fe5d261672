#include "tavrend/procedures_fixture.h"

namespace {

class LargeFile : public Procedure {};

}  // namespace

/* The copy protocol has no number for more than 4 GiB - 1. Holes take no room here, and little once compressed. */
TEST_F(LargeFile, GoesInParts) {
  constexpr auto in_an_item = "4227858431"; /* bytes: 64 MiB less, because what cannot be compressed gets longer */
  lab::run("truncate -s 4G " + log("a.1") + " && for place in 0 " + in_an_item +
           " 4294967290; do echo \"at $place\" | dd of=" + log("a.1") +
           " bs=1M oflag=seek_bytes seek=$place conv=notrunc status=none; done");
  start(closed("a.1") + "compress = zstd\n");
  ASSERT_EQ(set_config(), 0);
  /* Four gigabytes are to be compressed, and other tests run at the same time. */
  wait_until(
      "a part", [] { return archived_since_the_start(1) == 1; }, 600);
  wait_until("the rest", [] { return archived_since_the_start(1) == 2; });
  EXPECT_EQ(system(("zstd -dc $LAB_ARCHIVE/closed/* | cmp - " + log("a.1")).c_str()), 0);
  EXPECT_EQ(items("closed").size(), 2U);
  EXPECT_EQ(errors(), "");
}
