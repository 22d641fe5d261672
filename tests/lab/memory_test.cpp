#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

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
    lab::run("printf %s \"$LAB_PASSWORD\" >$LAB/password");
    const pid_t sender = fork();
    if (sender == 0) {
      execl("/bin/sh", "sh", "-c",
            "exec " TAVREN_SEND " -k $LAB/host_key.pub -p 0 $LAB_USER@$LAB_HOST:$LAB_ARCHIVE $LAB/file <$LAB/password",
            nullptr);
      _exit(127);
    }
    int status = 0;
    long peak = 0;
    for (; waitpid(sender, &status, WNOHANG) == 0; usleep(10000)) {
      const std::string now = read_file("/proc/" + std::to_string(sender) + "/status");
      const size_t place = now.find("VmPeak:");
      if (place != std::string::npos) peak = std::stol(now.substr(place + 7));
    }
    EXPECT_EQ(status, 0);
    lab::run("cmp $LAB/file $LAB_ARCHIVE/file");
    return peak;
  }
};

TEST_F(PeakMemory, OfSendingAGibibyteIsThatOfSendingAMebibyte) {
  const long small = of_sending(1L << 20);
  const long large = of_sending(1L << 30);
  std::cout << "peak memory: " << small << " KiB for 1 MiB, " << large << " KiB for 1 GiB\n";
  EXPECT_NEAR(static_cast<double>(large), static_cast<double>(small), 1024);
}

}  // namespace
