#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "support/temporary_directory.h"
#include "tavren_basic.h"

namespace {

/* The library as it is linked, with the stand-in behind it. Each is asked once, because the library remembers. */
class BundledDatabase : public testing::Test {
 protected:
  BundledDatabase() { setenv("HODRA_DIR", directory.path("databases").c_str(), 1); }

  static void put(const std::string& arguments) { ASSERT_EQ(system((HODRA_PUT " " + arguments).c_str()), 0); }

  TemporaryDirectory directory;
  const char* failed_call = "none";
};

TEST_F(BundledDatabase, SaysWhatThisMachineIs) {
  put("1 setup_system_id_info 1024 40=CHASSIS-7");
  put("3 local_kvf_info 280 20:byte=200");
  put("0 gen_system_info 1408 0:int=54321 36:int=12345");
  const char* id = nullptr;
  int number = 0;
  EXPECT_EQ(tavren_get_chassis_id(&id, &failed_call), 0);
  EXPECT_STREQ(id, "CHASSIS-7");
  EXPECT_EQ(tavren_get_sp_number(&number, &failed_call), 0);
  EXPECT_EQ(number, 200);
  EXPECT_EQ(tavren_get_max_regular_domains(), 12345);
  EXPECT_EQ(tavren_get_max_cmus(), 54321);
}

TEST_F(BundledDatabase, SaysThatThereIsNoDatabaseOrNoRecord) {
  const char* id = nullptr;
  EXPECT_EQ(tavren_get_chassis_id(&id, &failed_call), ENODEV);
  EXPECT_STREQ(failed_call, "open_conf_db");
  put("1 other 1");
  EXPECT_EQ(tavren_get_chassis_id(&id, &failed_call), ENOENT);
  EXPECT_STREQ(failed_call, "hodra_get");
}

}  // namespace
