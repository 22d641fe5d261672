#include <errno.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdlib.h>
#include <string.h>

#include <functional>
#include <map>
#include <string>
#include <tuple>

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

using Show = std::string (*)();

/* Returns what show returns in a process that has read nothing so far. */
std::string fresh(const std::function<std::string()>& show) {
  return run_in_child([&] { fputs(show().c_str(), stdout); }).out;
}

/* The same of two calls, with the operations that they have made behind them. */
std::string twice(Show show) {
  return fresh([show] {
    const std::string first = show();
    return first + ", " + show() + ", " + calls;
  });
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

TEST_F(PlatformIdentity, ChassisIdIsCutToSixteenCharacters) {
  name_chassis(with_nul("ABCDEFGHIJKLMNOPQRST"));
  EXPECT_EQ(fresh(chassis_id), "0 ABCDEFGHIJKLMNOP none");
  name_chassis("A"); /* without its NUL */
  EXPECT_EQ(fresh(chassis_id), "0 A" + std::string(15, 'x') + " none");
}

TEST_F(PlatformIdentity, ChassisIdIsReadFromItsRecordAndOnceAlsoWhenItIsEmpty) {
  EXPECT_EQ(twice(chassis_id), std::string("0 CHASSIS-7 none, 0 CHASSIS-7 none, ") + whole_reading);
  name_chassis(with_nul(""));
  EXPECT_EQ(twice(chassis_id), std::string("0 none none, 0 none none, ") + whole_reading);
}

TEST_F(PlatformIdentity, ResultOfTheClosingIsIgnored) {
  results["close_conf_db"] = 5;
  EXPECT_EQ(fresh(chassis_id), "0 CHASSIS-7 none");
}

/* It is an unsigned byte. */
TEST_F(PlatformIdentity, SpNumberIsReadFromItsRecordAndOnceAlsoWhenItIsZero) {
  const std::string reading =
      "open_conf_db 3; hodra_lock 3; hodra_get 3 local_kvf_info 0; hodra_unlock 3; close_conf_db 3; ";
  EXPECT_EQ(twice(sp_number), "0 254 none, 0 254 none, " + reading);
  records["local_kvf_info"] = record(280, 20, with_nul(""));
  EXPECT_EQ(twice(sp_number), "0 0 none, 0 0 none, " + reading);
}

TEST_F(PlatformIdentity, LimitsAreIntegersInTheMachinesByteOrder) {
  EXPECT_EQ(fresh(max_regular_domains), std::to_string(native_value));
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

TEST_F(PlatformIdentity, IsReadWhenTheDatabaseIsBack) {
  const std::string regular_domains = std::to_string(native_value);
  for (const auto& [show, failing, before, afterwards] :
       {std::tuple<Show, const char*, const char*, std::string>{chassis_id, "hodra_get", "77 untouched hodra_get",
                                                                "0 CHASSIS-7 none"},
        {sp_number, "hodra_get", "77 -7 hodra_get", "0 254 none"},
        {max_regular_domains, "open_conf_db", "24", regular_domains},
        {max_cmus, "open_conf_db", "16", "0"}}) {
    results[failing] = 77;
    const Show shown = show;
    EXPECT_EQ(fresh([shown] {
                const std::string while_it_fails = shown();
                results.clear();
                return while_it_fails + ", " + shown();
              }),
              before + (", " + afterwards));
    results.clear();
  }
}

/* A limit of -1 is the one that cannot be told from none. */
TEST_F(PlatformIdentity, LimitOfMinusOneIsReadAgain) {
  records["gen_system_info"] = std::string(1408, '\xff');
  const std::string reading =
      "open_conf_db 0; hodra_lock 0; hodra_get 0 gen_system_info 0; hodra_unlock 0; close_conf_db 0; ";
  for (const Show show : {max_regular_domains, max_cmus}) EXPECT_EQ(twice(show), "-1, -1, " + reading + reading);
}

TEST_F(PlatformIdentity, OfAShorterRecordIsAFailedAssertion) {
  for (const auto& [show, name, type] :
       {std::tuple<Show, const char*, std::string>{chassis_id, "setup_system_id_info", "setup_system_id_info_t"},
        {sp_number, "local_kvf_info", "local_kvf_info_t"},
        {max_regular_domains, "gen_system_info", "gen_system_info_t"},
        {max_cmus, "gen_system_info", "gen_system_info_t"}}) {
    const std::string whole = records[name];
    records[name].pop_back();
    expect_assertion("tavren_basic", "len >= sizeof (" + type + ")", show);
    records[name] = whole;
  }
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

TEST_F(PlatformIdentity, FailureOfAStepIsReportedButHiddenByTheLimits) {
  for (const std::string step : {"open_conf_db", "hodra_lock", "hodra_get", "hodra_unlock"}) {
    results = {{step, 77}};
    EXPECT_EQ(fresh(chassis_id), "77 untouched " + step);
    EXPECT_EQ(fresh(sp_number), "77 -7 " + step);
    EXPECT_EQ(fresh([] { return max_regular_domains() + " " + max_cmus(); }), "24 16") << step;
  }
}

TEST_F(PlatformIdentity, FailureOfAStepIsFollowedByUnlockingAndClosingWhatWasOpened) {
  for (const auto& [step, made] : {std::pair{"open_conf_db", "open_conf_db 1; "},
                                   {"hodra_lock", "open_conf_db 1; hodra_lock 1; close_conf_db 1; "},
                                   {"hodra_get", whole_reading}}) {
    calls.clear();
    results = {{step, 1}};
    chassis_id();
    EXPECT_EQ(calls, made);
  }
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
