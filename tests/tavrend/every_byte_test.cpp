#include <random>
#include <string>

#include "endurance/endurance.h"
#include "support/named.h"
#include "tavrend/daemon_fixture.h"
#include "tavrend/writer.h"

/*
 * Every byte once: the daemon is killed at any moment, while a service goes on writing its log and rotating it.
 */
namespace {

struct Way {
  Rotation rotation;
  bool closed_files; /* the rotated ones are archived, too, in a section of their own */
  bool compressed;
};

constexpr Named<Way> ways[] = {
    {"RotationByRename", {Rotation::rename, false, false}},
    {"RotationByCopyAndTruncation", {Rotation::copy_and_truncate, false, false}},
    {"ClosedFilesBeside", {Rotation::rename, true, false}},
    {"CompressedItems", {Rotation::rename, true, true}},
};

class DaemonThatIsKilled : public TavrendTest, public testing::WithParamInterface<Named<Way>> {
 protected:
  std::string configuration() const {
    const std::string compress = GetParam().value.compressed ? "compress = zstd\n" : "";
    return following("messages") + compress +
           (GetParam().value.closed_files ? closed("messages.[0-9]*") + compress : "");
  }

  static void expect_every_byte(const std::string& section, const std::string& written) {
    expect_archived(section, written, GetParam().value.compressed ? plain_archive_of : archive_of);
  }

  /*
   * Has the daemon begin to archive, and kills it after so many milliseconds, or in the middle of an item: as soon as
   * one stands in the archive.
   */
  void live_for(int milliseconds, bool until_an_item) {
    start_again();
    const size_t before = items("messages").size() + items("closed").size();
    run_task("LogTypeTask.messages");
    if (GetParam().value.closed_files) run_task("LogTypeTask.closed");
    for (int passed = 0; passed < milliseconds; ++passed) {
      usleep(1000);
      if (until_an_item && items("messages").size() + items("closed").size() > before) break;
    }
    stop(SIGKILL);
  }
};

}  // namespace

TEST_P(DaemonThatIsKilled, ArchivesEveryByteOnce) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::minstd_rand random(seed);
  std::uniform_int_distribution<> life(300, 1500);
  LogWriter writer(log("messages"), GetParam().value.rotation);
  writer.write_line("first line\n");
  start(configuration());
  ASSERT_EQ(set_config(), 0);
  expect_every_byte("messages", "first line\n");
  stop(SIGKILL);
  writer.begin();
  for (int i = 0; i < repetitions(20, 200); ++i) live_for(life(random), i % 2 == 0);
  writer.stop();
  writer.rotate();
  start_again();
  expect_every_byte("messages", writer.written());
  if (GetParam().value.closed_files) expect_every_byte("closed", writer.written());
  EXPECT_EQ(errors(), "");
}

INSTANTIATE_TEST_SUITE_P(, DaemonThatIsKilled, testing::ValuesIn(ways), by_name);
