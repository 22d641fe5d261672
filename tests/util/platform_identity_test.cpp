#include <errno.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdlib.h>
#include <string.h>

#include <functional>
#include <map>
#include <string>

#include "hodra.h"
#include "support/run_in_child.h"
#include "tavren_basic.h"

/*
 * This program defines the five operations of the configuration database itself, in the libraries' place. The library
 * remembers what it has read, so each look at it happens in a process of its own.
 */
namespace {

std::string calls;                          /* operations made, in order */
std::map<std::string, int> results;         /* of the operations that fail */
std::map<std::string, std::string> records; /* by name */

int result_of(const std::string& operation, int database, const std::string& details = "") {
  calls += operation + " " + std::to_string(database) + details + "; ";
  const auto found = results.find(operation);
  return found == results.end() ? 0 : found->second;
}

}  // namespace

int open_conf_db(int database) { return result_of("open_conf_db", database); }
int close_conf_db(int database) { return result_of("close_conf_db", database); }
int hodra_lock(int database) { return result_of("hodra_lock", database); }
int hodra_unlock(int database) { return result_of("hodra_unlock", database); }
int hodra_get(int database, const char* record, void** data, size_t* length, int flags) {
  const int result = result_of("hodra_get", database, std::string(" ") + record + " " + std::to_string(flags));
  if (result != 0) return result;
  const std::string& content = records[record];
  *data = malloc(content.size() + 1);
  memcpy(*data, content.data(), content.size());
  *length = content.size();
  return 0;
}

namespace {

constexpr char whole_reading[] =
    "open_conf_db 1; hodra_lock 1; hodra_get 1 setup_system_id_info 0; hodra_unlock 1; close_conf_db 1; ";

/* A record of length bytes, none of them zero but for the field at offset. */
std::string record(size_t length, size_t offset, const std::string& field) {
  return std::string(length, 'x').replace(offset, field.size(), field);
}

std::string with_nul(const std::string& text) { return text + std::string(1, '\0'); }

/* The bytes of 0x01020304, as this machine has them. */
std::string native_integer() {
  return __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? std::string("\1\2\3\4") : std::string("\4\3\2\1");
}

constexpr int native_value = 0x01020304;

std::string chassis_id() {
  const char* id = "untouched";
  const char* failed_call = "none";
  const int result = tavren_get_chassis_id(&id, &failed_call);
  return std::to_string(result) + " " + id + " " + failed_call;
}

std::string sp_number() {
  int number = -7;
  const char* failed_call = "none";
  const int result = tavren_get_sp_number(&number, &failed_call);
  return std::to_string(result) + " " + std::to_string(number) + " " + failed_call;
}

std::string max_regular_domains() { return std::to_string(tavren_get_max_regular_domains()); }
std::string max_cmus() { return std::to_string(tavren_get_max_cmus()); }

/* Returns what show returns in a process that has read nothing so far. */
std::string fresh(const std::function<std::string()>& show) {
  return run_in_child([&] { fputs(show().c_str(), stdout); }).out;
}

class PlatformIdentity : public testing::Test {
 protected:
  PlatformIdentity() {
    calls.clear();
    results.clear();
    name_chassis(with_nul("CHASSIS-7"));
    records["local_kvf_info"] = record(280, 20, "\xfe");
    records["gen_system_info"] = record(1408, 36, native_integer()).replace(0, 4, 4, '\0');
  }

  static void name_chassis(const std::string& text) { records["setup_system_id_info"] = record(1024, 40, text); }
};

TEST_F(PlatformIdentity, ChassisIdIsTheTextInItsRecord) { EXPECT_EQ(fresh(chassis_id), "0 CHASSIS-7 none"); }

TEST_F(PlatformIdentity, ChassisIdOfTwentyCharactersIsCutToSixteen) {
  name_chassis(with_nul("ABCDEFGHIJKLMNOPQRST"));
  EXPECT_EQ(fresh(chassis_id), "0 ABCDEFGHIJKLMNOP none");
}

TEST_F(PlatformIdentity, ChassisIdWithoutItsNulIsCutToSixteen) {
  name_chassis("A");
  EXPECT_EQ(fresh(chassis_id), "0 A" + std::string(15, 'x') + " none");
}

TEST_F(PlatformIdentity, EmptyChassisIdIsNone) {
  name_chassis(with_nul(""));
  EXPECT_EQ(fresh(chassis_id), "0 none none");
}

TEST_F(PlatformIdentity, ChassisIdIsReadFromItsRecordAndOnce) {
  EXPECT_EQ(fresh([] {
              chassis_id();
              chassis_id();
              return calls;
            }),
            whole_reading);
}

TEST_F(PlatformIdentity, EmptyChassisIdIsReadOnce) {
  name_chassis(with_nul(""));
  EXPECT_EQ(fresh([] {
              chassis_id();
              chassis_id();
              return calls;
            }),
            whole_reading);
}

TEST_F(PlatformIdentity, ChassisIdStaysWhenTheRecordChanges) {
  EXPECT_EQ(fresh([] {
              chassis_id();
              name_chassis(with_nul("OTHER"));
              return chassis_id();
            }),
            "0 CHASSIS-7 none");
}

TEST_F(PlatformIdentity, ResultOfTheClosingIsIgnored) {
  results["close_conf_db"] = 5;
  EXPECT_EQ(fresh(chassis_id), "0 CHASSIS-7 none");
}

TEST_F(PlatformIdentity, SpNumberIsTheUnsignedByteInItsRecord) { EXPECT_EQ(fresh(sp_number), "0 254 none"); }

TEST_F(PlatformIdentity, SpNumberIsReadFromItsRecordAndOnce) {
  EXPECT_EQ(fresh([] {
              sp_number();
              return calls + sp_number();
            }),
            "open_conf_db 3; hodra_lock 3; hodra_get 3 local_kvf_info 0; hodra_unlock 3; close_conf_db 3; 0 254 none");
}

TEST_F(PlatformIdentity, SpNumberZeroIsReadOnce) {
  records["local_kvf_info"] = record(280, 20, with_nul(""));
  EXPECT_EQ(fresh([] {
              sp_number();
              calls.clear();
              return sp_number() + calls;
            }),
            "0 0 none");
}

TEST_F(PlatformIdentity, MaxRegularDomainsIsAnIntegerInTheMachinesByteOrder) {
  EXPECT_EQ(fresh(max_regular_domains), std::to_string(native_value));
}

TEST_F(PlatformIdentity, MaxCmusIsAnIntegerInTheMachinesByteOrder) {
  records["gen_system_info"] = record(1408, 0, native_integer());
  EXPECT_EQ(fresh(max_cmus), std::to_string(native_value));
}

TEST_F(PlatformIdentity, LimitsAreReadFromTheirRecordOnceEach) {
  const std::string reading =
      "open_conf_db 0; hodra_lock 0; hodra_get 0 gen_system_info 0; hodra_unlock 0; close_conf_db 0; ";
  EXPECT_EQ(fresh([] {
              for (int i = 0; i < 2; ++i) max_regular_domains() + max_cmus();
              return calls;
            }),
            reading + reading);
}

TEST_F(PlatformIdentity, LimitsWithoutADatabaseAreTheirFallbacks) {
  results["open_conf_db"] = ENODEV;
  EXPECT_EQ(fresh([] { return max_regular_domains() + " " + max_cmus(); }), "24 16");
}

TEST_F(PlatformIdentity, MaxRegularDomainsIsReadWhenTheDatabaseIsBack) {
  EXPECT_EQ(fresh([] {
              results["open_conf_db"] = ENODEV;
              const std::string before = max_regular_domains();
              results.clear();
              return before + " " + max_regular_domains();
            }),
            "24 " + std::to_string(native_value));
}

TEST_F(PlatformIdentity, MaxCmusIsReadWhenTheDatabaseIsBack) {
  EXPECT_EQ(fresh([] {
              results["open_conf_db"] = ENODEV;
              const std::string before = max_cmus();
              results.clear();
              return before + " " + max_cmus();
            }),
            "16 0");
}

TEST_F(PlatformIdentity, ChassisIdIsReadWhenTheDatabaseIsBack) {
  EXPECT_EQ(fresh([] {
              results["hodra_get"] = ENOENT;
              chassis_id();
              results.clear();
              return chassis_id();
            }),
            "0 CHASSIS-7 none");
}

TEST_F(PlatformIdentity, SpNumberIsReadWhenTheDatabaseIsBack) {
  EXPECT_EQ(fresh([] {
              results["hodra_get"] = ENOENT;
              sp_number();
              results.clear();
              return sp_number();
            }),
            "0 254 none");
}

/* A limit of -1 is the one that cannot be told from none. */
class PlatformLimitOfMinusOne : public PlatformIdentity {
 protected:
  PlatformLimitOfMinusOne() { records["gen_system_info"] = std::string(1408, '\xff'); }

  /* Returns what two queries show, and how many readings they took. */
  static std::string twice(const std::function<std::string()>& show) {
    return fresh([&] {
      const std::string shown = show() + " " + show();
      size_t readings = 0;
      for (size_t p = 0; (p = calls.find("hodra_get", p)) != std::string::npos; ++p) ++readings;
      return shown + ", " + std::to_string(readings) + " readings";
    });
  }
};

TEST_F(PlatformLimitOfMinusOne, IsReadAgainAsMaxRegularDomains) {
  EXPECT_EQ(twice(max_regular_domains), "-1 -1, 2 readings");
}

TEST_F(PlatformLimitOfMinusOne, IsReadAgainAsMaxCmus) { EXPECT_EQ(twice(max_cmus), "-1 -1, 2 readings"); }

TEST_F(PlatformIdentity, AShorterChassisRecordIsAFailedAssertion) {
  records["setup_system_id_info"].resize(1023);
  expect_assertion("tavren_basic", "len >= sizeof (setup_system_id_info_t)", [] { chassis_id(); });
}

TEST_F(PlatformIdentity, AShorterProcessorRecordIsAFailedAssertion) {
  records["local_kvf_info"].resize(279);
  expect_assertion("tavren_basic", "len >= sizeof (local_kvf_info_t)", [] { sp_number(); });
}

TEST_F(PlatformIdentity, AShorterRecordOfTheDomainLimitIsAFailedAssertion) {
  records["gen_system_info"].resize(1407);
  expect_assertion("tavren_basic", "len >= sizeof (gen_system_info_t)", [] { max_regular_domains(); });
}

TEST_F(PlatformIdentity, AShorterRecordOfTheUnitLimitIsAFailedAssertion) {
  records["gen_system_info"].resize(1407);
  expect_assertion("tavren_basic", "len >= sizeof (gen_system_info_t)", [] { max_cmus(); });
}

TEST_F(PlatformIdentity, ALongerRecordIsRead) {
  records["setup_system_id_info"].resize(5000);
  EXPECT_EQ(fresh(chassis_id), "0 CHASSIS-7 none");
}

/* Without what small blocks leave in the memory's own caches. The address sanitizer looks at no child process. */
TEST_F(PlatformIdentity, EveryRecordIsReleased) {
  constexpr ptrdiff_t half = 1 << 20; /* of a record */
  for (auto& [name, content] : records) content.resize(2 * half);
  EXPECT_EQ(fresh([] {
              const auto taken = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
              const size_t before = taken();
              chassis_id();
              sp_number();
              max_cmus();
              max_regular_domains();
              return std::to_string(static_cast<ptrdiff_t>(taken() - before) / half);
            }),
            "0");
}

/* Makes the named step of the reading fail. */
class PlatformIdentityFailure : public PlatformIdentity, public testing::WithParamInterface<const char*> {
 protected:
  PlatformIdentityFailure() { results[GetParam()] = 77; }
};

TEST_P(PlatformIdentityFailure, OfAStepIsReportedByTheChassisId) {
  EXPECT_EQ(fresh(chassis_id), std::string("77 untouched ") + GetParam());
}

TEST_P(PlatformIdentityFailure, OfAStepIsReportedByTheSpNumber) {
  EXPECT_EQ(fresh(sp_number), std::string("77 -7 ") + GetParam());
}

TEST_P(PlatformIdentityFailure, OfAStepIsHiddenByTheLimits) {
  EXPECT_EQ(fresh([] { return max_regular_domains() + " " + max_cmus(); }), "24 16");
}

INSTANTIATE_TEST_SUITE_P(Steps, PlatformIdentityFailure,
                         testing::Values("open_conf_db", "hodra_lock", "hodra_get", "hodra_unlock"));

TEST_F(PlatformIdentity, AFailedOpeningIsFollowedByNothing) {
  results["open_conf_db"] = 1;
  chassis_id();
  EXPECT_EQ(calls, "open_conf_db 1; ");
}

TEST_F(PlatformIdentity, AFailedLockIsFollowedByTheClosing) {
  results["hodra_lock"] = 1;
  chassis_id();
  EXPECT_EQ(calls, "open_conf_db 1; hodra_lock 1; close_conf_db 1; ");
}

TEST_F(PlatformIdentity, AFailedReadingIsFollowedByUnlockingAndClosing) {
  results["hodra_get"] = 1;
  chassis_id();
  EXPECT_EQ(calls, whole_reading);
}

TEST_F(PlatformIdentity, AFailedUnlockingIsFollowedByTheClosingAndReleasesTheRecord) {
  results["hodra_unlock"] = 1;
  chassis_id();
  EXPECT_EQ(calls, whole_reading);
  calls.reserve(100000);
  const size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 100; ++i) chassis_id();
  EXPECT_EQ((mallinfo2().uordblks - before) / 1024, 0U);
}

}  // namespace
