#include <gtest/gtest.h>

#include <iostream>

#include "lab/lab.h"
#include "support/files.h"

namespace {

class PeakMemory : public LabTest {
 protected:
  /*
   * Sends a file of size bytes with the example program, compares it, and returns the most address space that the
   * program had, in KiB. What of it lies in memory depends also on how much of the libraries the system finds worth
   * keeping.
   */
  static long of_sending(long size) {
    lab::run("openssl enc -aes-128-ctr -pass pass:x -nosalt -pbkdf2 </dev/zero 2>/dev/null | head -c " +
             std::to_string(size) + " >$LAB/file");
    lab::run("printf %s \"$LAB_PASSWORD\" | " TAVREN_SEND
             " -k $LAB/host_key.pub -p 0 $LAB_USER@$LAB_HOST:$LAB_ARCHIVE $LAB/file & sender=$!\n"
             "while peak=$(sed -n 's/^VmPeak:[^0-9]*\\([0-9]*\\).*/\\1/p' /proc/$sender/status) && [ -n \"$peak\" ]\n"
             "do echo $peak >$LAB/peak; sleep 0.01; done\n"
             "wait $sender");
    lab::run("cmp $LAB/file $LAB_ARCHIVE/file");
    return std::stol(read_file(lab::value("LAB") + "/peak"));
  }
};

TEST_F(PeakMemory, OfSendingAGibibyteIsThatOfSendingAMebibyte) {
  const long small = of_sending(1L << 20);
  const long large = of_sending(1L << 30);
  std::cout << "peak memory: " << small << " KiB for 1 MiB, " << large << " KiB for 1 GiB\n";
  EXPECT_NEAR(static_cast<double>(large), static_cast<double>(small), 1024);
}

}  // namespace
