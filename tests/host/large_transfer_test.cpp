#include <errno.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "host/transfer_fixture.h"
#include "support/named.h"

namespace {

struct Size {
  int64_t bytes;
  int argument; /* what send_file is told */
};

/*
 * Sizes around the limits of 32-bit numbers, in files without blocks, into a sink that drops the data. A byte too many
 * or too few, and what comes behind them is not the zero and the end. The files are nowhere but in memory, which holds
 * none of a hole; a disk's file system would have a page for each of it.
 */
class LargeTransfer : public TransferTest, public testing::WithParamInterface<Named<Size>> {};

}  // namespace

TEST_P(LargeTransfer, ArrivesWhole) {
  const std::string size = std::to_string(GetParam().value.bytes);
  use_sink("printf '\\0'; next_line header; printf '\\0'; head -c " + size +
           " >/dev/null; head -c 1 >$dir/zero; printf '\\0'; next_line end; printf '\\0'");
  const int file = memfd_create("file", MFD_CLOEXEC);
  ASSERT_EQ(ftruncate(file, GetParam().value.bytes), 0);
  host.send_file(file, "log", "file", GetParam().value.argument, 0644);
  close(file);
  EXPECT_EQ(sink->taken("header"), "C0644 " + size + " file\n");
  EXPECT_EQ(sink->taken("zero"), std::string(1, '\0'));
  EXPECT_EQ(sink->taken("end"), "E\n");
}

using Large = Named<Size>;
INSTANTIATE_TEST_SUITE_P(, LargeTransfer,
                         testing::Values(Large{"TwoGigabytesLessOne", {2147483647, 2147483647}},
                                         Large{"TwoGigabytesLessOneFoundOut", {2147483647, -1}},
                                         Large{"TwoGigabytes", {2147483648, -1}},
                                         Large{"FourGigabytesLessOne", {4294967295, -1}}),
                         by_name);

using TransferLimit = TransferTest;

TEST_F(TransferLimit, OfMoreThanCanBeAnnouncedIsASystemCallError) {
  const int file = memfd_create("file", MFD_CLOEXEC);
  ASSERT_EQ(ftruncate(file, 4294967296), 0);
  EXPECT_EQ(error_body([&] { host.send_file(file, "log", "file", -1, 0644); }),
            "  - System call \"lseek(log)\" failed with error code " + std::to_string(EFBIG) + "\n");
  close(file);
}
