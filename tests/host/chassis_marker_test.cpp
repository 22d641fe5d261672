#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <tuple>

#include "host/transfer_fixture.h"
#include "support/chassis.h"

namespace {

/* The archive directory is the test's own directory. */
class ChassisMarker : public TransferTest {
 protected:
  void make_marker(const std::string& id) const { write_file(directory.path(".chassis." + id), ""); }

  std::set<std::string> markers() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
      names.insert(entry.path().filename());
    }
    return names;
  }

  /* Has the remote shell run the lines body in the place of an echo of markers. */
  void answer_with(const std::string& body) {
    host.run_line("echo() { case $1 in .chassis*) " + body + ";; *) printf '%s\\n' \"$*\";; esac; }", nullptr);
  }

  std::string conflict(const std::string& line) const {
    return "  - Another QRV chassis is already using the specified archive directory (" + directory.path() +
           ")\n  - Remote command \"echo .chassis.*\" produced incorrect output: 1 line(s) of output\n"
           "  - Command output: \"" +
           line + "\"\n";
  }
};

using Names = std::set<std::string>;

TEST_F(ChassisMarker, ClaimsAnEmptyDirectoryWithAnEmptyFileThatItsOwnerMayWriteAndAllMayRead) {
  host.run_line("umask 0", nullptr);
  host.create_chassis_file();
  EXPECT_EQ(markers(), Names{".chassis.CHASSIS-7"});
  EXPECT_EQ(received(".chassis.CHASSIS-7"), "");
  EXPECT_EQ(std::filesystem::status(directory.path(".chassis.CHASSIS-7")).permissions(),
            static_cast<std::filesystem::perms>(0644));
}

/* The name is looked for anywhere, so identifiers that hold one another are not told apart. */
TEST_F(ChassisMarker, OfOursOrOfAChassisWhoseNameHoldsOursIsEnoughToSendNothing) {
  use_sink("exit 1\n");
  for (const char* id : {"CHASSIS-7", "CHASSIS-70", "CHASSIS-7 B", "OLD.chassis.CHASSIS-7"}) {
    make_marker(id);
    EXPECT_NO_THROW(host.create_chassis_file()) << id;
    std::filesystem::remove(directory.path(std::string(".chassis.") + id));
  }
  EXPECT_EQ(sink->starts(), 0);
}

TEST_F(ChassisMarker, OfAnotherChassisIsAConflictThatShowsItWhateverStatusTheListingHas) {
  for (const std::string marker : {".chassis.CHASSIS-8", ".chassis.CHASSIS-"}) {
    write_file(directory.path(marker), "");
    EXPECT_EQ(error_body([this] { host.create_chassis_file(); }), conflict(marker));
    EXPECT_EQ(markers(), Names{marker});
    std::filesystem::remove(directory.path(marker));
  }
  answer_with("printf '.chassis.CHASSIS-8\\n'; return 3");
  EXPECT_EQ(error_body([this] { host.create_chassis_file(); }), conflict(".chassis.CHASSIS-8"));
  EXPECT_EQ(markers(), Names{});
}

TEST_F(ChassisMarker, OfAnotherChassisBesideOursIsTolerated) {
  make_marker("CHASSIS-7");
  make_marker("CHASSIS-8");
  EXPECT_NO_THROW(host.create_chassis_file());
  EXPECT_EQ(markers(), (Names{".chassis.CHASSIS-7", ".chassis.CHASSIS-8"}));
}

TEST_F(ChassisMarker, IsMadeUnlessTheListingIsOneLineWithOurs) {
  const std::tuple<const char*, const char*, bool> listings[] = {
      {"ours anywhere in the line", "printf 'x .chassis.CHASSIS-7 .chassis.CHASSIS-8\\n'", false},
      {"ours behind one that begins like it", "printf '.chassis.CHASSIS-70 .chassis.CHASSIS-7\\n'", false},
      {"ours with any status", "printf '.chassis.CHASSIS-7\\n'; return 3", false},
      {"ours in the first of two lines", "printf '.chassis.CHASSIS-7\\nx\\n'", true},
      {"ours in the second of two lines", "printf '.chassis.CHASSIS-8\\n.chassis.CHASSIS-7\\n'", true},
      {"nothing", "true", true},
      {"the pattern with any status", "printf '%s\\n' '.chassis.*'; return 3", true},
      {"another one with the pattern behind it", "printf '%s\\n' '.chassis.CHASSIS-8 .chassis.*'", true},
      {"another one inside a word", "printf 'x.chassis.CHASSIS-8\\n'", true},
  };
  for (const auto& [what, listing, is_made] : listings) {
    SCOPED_TRACE(what);
    answer_with(listing);
    EXPECT_NO_THROW(host.create_chassis_file());
    EXPECT_EQ(markers(), is_made ? Names{".chassis.CHASSIS-7"} : Names{});
    std::filesystem::remove(directory.path(".chassis.CHASSIS-7"));
  }
}

TEST_F(ChassisMarker, OfAChassisWithAMarkerInItsNameIsOurs) {
  chassis::set_id("OLD.chassis.NEW");
  host.create_chassis_file();
  EXPECT_EQ(markers(), Names{".chassis.OLD.chassis.NEW"});
}

TEST_F(ChassisMarker, OtherFilesLeaveTheDirectoryFree) {
  write_file(directory.path(".chassis"), "");
  write_file(directory.path("chassis.CHASSIS-8"), "");
  EXPECT_NO_THROW(host.create_chassis_file());
  EXPECT_EQ(markers().count(".chassis.CHASSIS-7"), 1U);
}

/* Both chassis have found the directory empty: nobody looks again. */
TEST_F(ChassisMarker, IsTheLastThingThatIsSent) {
  use_sink("touch .chassis.CHASSIS-8\nexec scp -q -t \"$1\"\n");
  recorded_system::record_writes();
  EXPECT_NO_THROW(host.create_chassis_file());
  EXPECT_EQ(recorded_system::take_writes().back(), std::string("\0E\n", 3));
  EXPECT_EQ(markers(), (Names{".chassis.CHASSIS-7", ".chassis.CHASSIS-8"}));
}

TEST_F(ChassisMarker, OfAChassisWithBlanksInItsNameIsOurs) {
  chassis::set_id("A  B");
  host.create_chassis_file();
  EXPECT_EQ(markers(), Names{".chassis.A  B"});
  use_sink("exit 1\n");
  EXPECT_NO_THROW(host.create_chassis_file());
}

TEST_F(ChassisMarker, WithoutAnIdentifierIsASystemCallErrorThatNamesTheStep) {
  chassis::fail("hodra_lock", 77);
  EXPECT_EQ(error_body([this] { host.create_chassis_file(); }),
            "  - System call \"create_chassis_file->hodra_lock\" failed with error code 77\n");
  EXPECT_EQ(markers(), Names{});
}

TEST_F(ChassisMarker, ThatCannotBeWrittenIsTheTransfersError) {
  use_sink("printf '\\001No space left on device\\n'\nread -r line\n");
  EXPECT_EQ(error_body([this] { host.create_chassis_file(); }),
            "  - Remote command \"" + sink_command(".chassis.CHASSIS-7") +
                "\" failed with error code 1\n  - Command output: \"No space left on device\"\n");
}

TEST_F(ChassisMarker, ListingMayTakeAsLongAsACommand) {
  answer_with("sleep 100");
  set_tunable("ssh_command_timeout", "1");
  EXPECT_EQ(error_body([this] { host.create_chassis_file(); }),
            "  - Timeout occurred while running remote command: \"echo .chassis.*\"\n");
}

}  // namespace
