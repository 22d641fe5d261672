/* Compiled as a later standard than the library: only that one makes a string without writing each of its bytes. */
#include <errno.h>
#include <gtest/gtest.h>

#include "process/children.h"
#include "process/faults.h"

TEST(Send, OffersAStringOfMoreThan4GiBWhole) {
  constexpr size_t size = (1ULL << 32) + 5;
  std::string data;
  data.resize_and_overwrite(size, [](char*, size_t length) { return length; });
  TavrenProcess child("/bin/cat", {}, false);
  const Faulty call("write", EIO);
  EXPECT_EQ(result_of([&] { child.send(data, patience); }), "24(write(to_child), 5)");
  EXPECT_EQ(call.arguments().at(0), static_cast<long>(size));
}
