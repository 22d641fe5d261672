#include <gtest/gtest.h>

#include <string>

#include "tavren_share.h"

namespace {

struct Target {
  std::string spec, user, host, directory;
};

class LegalTarget : public testing::TestWithParam<Target> {};

TEST_P(LegalTarget, IsSplitInPlace) {
  std::string spec = GetParam().spec;
  char *user = nullptr, *host = nullptr, *directory = nullptr;
  ASSERT_EQ(tavren_parse_target(spec.data(), &user, &host, &directory), 0);
  EXPECT_EQ(user, GetParam().user);
  EXPECT_EQ(host, GetParam().host);
  EXPECT_EQ(directory, GetParam().directory);
  for (const char* part : {user, host, directory}) {
    EXPECT_GE(part, spec.data());
    EXPECT_LT(part, spec.data() + spec.size());
  }
}

INSTANTIATE_TEST_SUITE_P(Each, LegalTarget,
                         testing::Values(Target{"a@b:/x/", "a", "b", "/x"}, Target{"a@b:/", "a", "b", "/"},
                                         Target{"a@b:c", "a", "b", "c"}, Target{"a@b:c//", "a", "b", "c/"},
                                         Target{"a@b://", "a", "b", "/"}, Target{"a@b@c:d", "a", "b@c", "d"},
                                         Target{"a@b:c:d", "a", "b", "c:d"}, Target{"a@b:c@d", "a", "b", "c@d"},
                                         Target{"a@b::", "a", "b", ":"}, Target{"@@a@b:c", "a", "b", "c"},
                                         Target{"a@::b:c", "a", "b", "c"}, Target{"a:b@c:d", "a:b", "c", "d"},
                                         Target{" a @ b : c ", " a ", " b ", " c "}));

class IncompleteTarget : public testing::TestWithParam<std::string> {};

TEST_P(IncompleteTarget, IsRefused) {
  std::string spec = GetParam();
  char *user = nullptr, *host = nullptr, *directory = nullptr;
  EXPECT_EQ(tavren_parse_target(spec.data(), &user, &host, &directory), -1);
}

INSTANTIATE_TEST_SUITE_P(Each, IncompleteTarget,
                         testing::Values("", "@", "@@", "a", "a@", "a@b", "a@b:", "@b:c", "a@:", "a@::", ":c", "a:c"));

/* Returns the reason for which a target is refused, "accepted" for none. */
std::string verdict(std::string spec) {
  char message[TAVREN_MESSAGE_SIZE] = "accepted";
  char *user = nullptr, *host = nullptr, *directory = nullptr;
  const int result = tavren_process_target(spec.data(), &user, &host, &directory, message);
  EXPECT_EQ(result, std::string(message) == "accepted" ? 0 : -1);
  return message;
}

constexpr char wrong_form[] = "Target specification must have the form: user@host:directory.";
constexpr char long_user[] = "The user name is more than 63 bytes long.";
constexpr char long_host[] = "The host name is more than 255 bytes long.";
constexpr char long_directory[] = "The specified directory name is more than 255 bytes long.";
constexpr char user_hyphen[] = "The ssh username may not start with '-'.";
constexpr char host_hyphen[] = "The host name may not start with '-'.";
constexpr char directory_start[] = "The archive directory name may not start with '-' or '~'.";

TEST(ProcessTarget, AcceptsATargetAndHandsOutItsParts) {
  char spec[] = "a@b:/x/";
  char message[TAVREN_MESSAGE_SIZE] = "as it was";
  char *user = nullptr, *host = nullptr, *directory = nullptr;
  EXPECT_EQ(tavren_process_target(spec, &user, &host, &directory, message), 0);
  EXPECT_STREQ(user, "a");
  EXPECT_STREQ(host, "b");
  EXPECT_STREQ(directory, "/x");
  EXPECT_STREQ(message, "as it was");
}

TEST(ProcessTarget, NamesTheFormOfATarget) {
  EXPECT_EQ(verdict("a@b"), wrong_form);
  EXPECT_EQ(verdict(""), wrong_form);
}

TEST(ProcessTarget, LimitsTheUserTo63Bytes) {
  EXPECT_EQ(verdict(std::string(63, 'u') + "@h:d"), "accepted");
  EXPECT_EQ(verdict(std::string(64, 'u') + "@h:d"), long_user);
}

TEST(ProcessTarget, LimitsTheHostTo255Bytes) {
  EXPECT_EQ(verdict("u@" + std::string(255, 'h') + ":d"), "accepted");
  EXPECT_EQ(verdict("u@" + std::string(256, 'h') + ":d"), long_host);
}

TEST(ProcessTarget, LimitsTheDirectoryTo255Bytes) {
  EXPECT_EQ(verdict("u@h:" + std::string(255, 'd')), "accepted");
  EXPECT_EQ(verdict("u@h:" + std::string(256, 'd')), long_directory);
}

TEST(ProcessTarget, DoesNotCountTheSlashThatItRemoves) {
  EXPECT_EQ(verdict("u@h:" + std::string(255, 'd') + "/"), "accepted");
}

TEST(ProcessTarget, RefusesPartsThatLookLikeOptions) {
  EXPECT_EQ(verdict("-u@h:d"), user_hyphen);
  EXPECT_EQ(verdict("u@-h:d"), host_hyphen);
  EXPECT_EQ(verdict("u@h:-d"), directory_start);
}

TEST(ProcessTarget, RefusesADirectoryThatTheShellWouldExpand) {
  EXPECT_EQ(verdict("u@h:~d"), directory_start);
  EXPECT_EQ(verdict("u@h:~"), directory_start);
}

TEST(ProcessTarget, AcceptsHyphensAndTildesFurtherIn) { EXPECT_EQ(verdict("u-~@h-~:/~/-"), "accepted"); }

/* Each target breaks two rules that stand next to each other. */
TEST(ProcessTarget, ChecksInAFixedOrder) {
  const std::string long_part(256, 'x');
  EXPECT_EQ(verdict(long_part + "@" + long_part + ":d"), long_user);
  EXPECT_EQ(verdict("u@" + long_part + ":" + long_part), long_host);
  EXPECT_EQ(verdict("-u@h:" + long_part), long_directory);
  EXPECT_EQ(verdict("-u@-h:d"), user_hyphen);
  EXPECT_EQ(verdict("u@-h:-d"), host_hyphen);
}

}  // namespace
