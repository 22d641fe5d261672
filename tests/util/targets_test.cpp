#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

#include "tavren_share.h"

namespace {

TEST(Target, ThatIsLegalIsSplitInPlace) {
  const std::tuple<std::string, std::string, std::string, std::string> targets[] = {
      {"a@b:/x/", "a", "b", "/x"},         {"a@b:/", "a", "b", "/"},     {"a@b:c", "a", "b", "c"},
      {"a@b:c//", "a", "b", "c/"},         {"a@b://", "a", "b", "/"},    {"a@b@c:d", "a", "b@c", "d"},
      {"a@b:c:d", "a", "b", "c:d"},        {"a@b:c@d", "a", "b", "c@d"}, {"a@b::", "a", "b", ":"},
      {"@@a@b:c", "a", "b", "c"},          {"a@::b:c", "a", "b", "c"},   {"a:b@c:d", "a:b", "c", "d"},
      {" a @ b : c ", " a ", " b ", " c "}};
  for (auto [spec, its_user, its_host, its_directory] : targets) {
    SCOPED_TRACE(spec);
    char *user = nullptr, *host = nullptr, *directory = nullptr;
    ASSERT_EQ(tavren_parse_target(spec.data(), &user, &host, &directory), 0);
    EXPECT_EQ(user, its_user);
    EXPECT_EQ(host, its_host);
    EXPECT_EQ(directory, its_directory);
    for (const char* part : {user, host, directory}) {
      EXPECT_GE(part, spec.data());
      EXPECT_LT(part, spec.data() + spec.size());
    }
  }
}

TEST(Target, ThatIsIncompleteIsRefused) {
  for (std::string spec : {"", "@", "@@", "a", "a@", "a@b", "a@b:", "@b:c", "a@:", "a@::", ":c", "a:c"}) {
    char *user = nullptr, *host = nullptr, *directory = nullptr;
    EXPECT_EQ(tavren_parse_target(spec.data(), &user, &host, &directory), -1) << spec;
  }
}

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

/* Some break two rules that stand next to each other. */
TEST(ProcessTarget, IsRefusedForTheFirstRuleThatItBreaks) {
  const std::string long_part(256, 'x');
  const std::pair<std::string, const char*> targets[] = {
      {"a@b", wrong_form},
      {"", wrong_form},
      {"-u@h:d", user_hyphen},
      {"u@-h:d", host_hyphen},
      {"u@h:-d", directory_start},
      {"u@h:~d", directory_start},
      {"u@h:~", directory_start},
      {"u-~@h-~:/~/-", "accepted"},
      {"u@h:" + std::string(255, 'd') + "/", "accepted"}, /* the slash that is removed does not count */
      {long_part + "@" + long_part + ":d", long_user},
      {"u@" + long_part + ":" + long_part, long_host},
      {"-u@h:" + long_part, long_directory},
      {"-u@-h:d", user_hyphen},
      {"u@-h:-d", host_hyphen}};
  for (const auto& [spec, reason] : targets) EXPECT_EQ(verdict(spec), reason) << spec;
}

TEST(ProcessTarget, LimitsTheUserTo63AndHostAndDirectoryTo255Bytes) {
  const std::tuple<std::string, size_t, std::string, const char*> parts[] = {
      {"", 63, "@h:d", long_user}, {"u@", 255, ":d", long_host}, {"u@h:", 255, "", long_directory}};
  for (const auto& [before, limit, behind, refusal] : parts) {
    EXPECT_EQ(verdict(before + std::string(limit, 'x') + behind), "accepted");
    EXPECT_EQ(verdict(before + std::string(limit + 1, 'x') + behind), refusal);
  }
}

}  // namespace
