#include <sys/stat.h>

#include <iostream>

#include "plan/checksum.h"
#include "support/named.h"
#include "tavrend/procedures_fixture.h"

namespace {

constexpr long most_kib = 16L * 1024;

class DaemonsMemory : public Procedure {
 protected:
  void TearDown() override {
    if (daemon != -1) stop(SIGKILL);
    if (is_mounted) lab::change_machine("umount " + logs);
  }

  /* Returns the most memory that the daemon has had since its start, in KiB. */
  long peak_kib() const {
    const std::string status = read_file("/proc/" + std::to_string(daemon) + "/status");
    return std::stol(status.substr(status.find("VmHWM:") + 6));
  }

  /* In memory where that can be: a disk may take a minute to remove them. */
  void make_many_files() {
    is_mounted = getenv("LAB_IN_PLACE") == nullptr;
    if (is_mounted) lab::change_machine("mount -t tmpfs -o size=200m tmpfs " + logs);
    lab::run("cd " + logs + " && openssl enc -aes-128-ctr -pass pass:x -nosalt -pbkdf2 </dev/zero 2>/dev/null | " +
             "head -c 22000000 | split -a 5 -b 1100 - small.");
  }

  /* What a daemon remembers of a file that it has archived. */
  static std::string row_of(const std::string& path) {
    struct stat now {};
    EXPECT_EQ(stat(path.c_str(), &now), 0);
    constexpr size_t head_size = 1024;
    const auto sum = static_cast<int64_t>(checksum(read_file(path).substr(0, head_size)));
    const int64_t mtime_ns = int64_t{now.st_mtim.tv_sec} * 1000000000 + now.st_mtim.tv_nsec;
    std::string row = "CAST('closed' AS BLOB)";
    for (const int64_t number : {static_cast<int64_t>(now.st_dev), static_cast<int64_t>(now.st_ino),
                                 static_cast<int64_t>(head_size), sum, int64_t{now.st_size}, mtime_ns, int64_t{0}}) {
      row += ", " + std::to_string(number);
    }
    return "INSERT INTO archived VALUES (NULL, " + row + ", 0, row_sum(" + row + "));\n";
  }

  /* Has the daemon that comes next know all files that are there. */
  void know_all_files() const {
    std::string rows;
    for (const auto& entry : std::filesystem::directory_iterator(logs)) rows += row_of(entry.path());
    change_state("BEGIN;" + rows + "COMMIT");
  }

  void expect_little_memory(const std::string& what) const {
    const long peak = peak_kib();
    std::cout << "peak memory " << what << ": " << peak << " KiB\n";
    EXPECT_LT(peak, most_kib);
  }

 private:
  bool is_mounted = false;
};

class MemoryByForm : public DaemonsMemory, public testing::WithParamInterface<Named<const char*>> {};

constexpr Named<const char*> forms[] = {{"AsItIs", "compress = none\n"}, {"Compressed", "compress = zstd\n"}};

}  // namespace

/* Text that does not repeat, so that the compression fills its tables. The log that is followed goes in two pieces. */
TEST_P(MemoryByForm, IsLittleForALargeLog) {
  lab::run(
      "openssl enc -aes-128-ctr -pass pass:x -nosalt -pbkdf2 </dev/zero 2>/dev/null | base64 | head -c 220000000 >" +
      log("large.1") + " && head -c 100000000 " + log("large.1") + " >" + log("messages"));
  start(following("messages") + GetParam().value + closed("large.*") + GetParam().value);
  ASSERT_EQ(set_config(), 0);
  wait_until("both", [] { return archived_since_the_start(1) == 3; });
  expect_little_memory(std::string("of a large log, ") + GetParam().name);
  EXPECT_EQ(errors(), "");
}

INSTANTIATE_TEST_SUITE_P(, MemoryByForm, testing::ValuesIn(forms), by_name);

/* Each has more than the bytes by which files are told from one another. */
TEST_F(DaemonsMemory, IsLittleForManyFiles) {
  make_many_files();
  start(closed("small.*"));
  ASSERT_EQ(set_config(), 0);
  wait_until("some of them", [] { return items("closed").size() > 3; });
  expect_little_memory("of many files");
}

TEST_F(DaemonsMemory, IsLittleForManyArchivedFiles) {
  make_many_files();
  start(closed("small.*"));
  stop();
  know_all_files();
  append("small.new", "new\n");
  start_again();
  ASSERT_EQ(set_config(), 0);
  expect_archived("closed", "new\n");
  expect_little_memory("of many archived files");
}
