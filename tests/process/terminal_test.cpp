#include <gtest/gtest.h>

#include "process/children.h"

TEST(Terminal, IsRawAndWithoutSizeFromTheStart) {
  for (int i = 0; i < 300; ++i) {
    TavrenProcess child = counterpart({"terminal"}, i % 3 == 0);
    ASSERT_EQ(next_line(child), "raw 0 0 0 0");
    child.stop(0);
  }
}

TEST(Terminal, EchoesNothingSentRightAfterTheStart) {
  for (int i = 0; i < 100; ++i) {
    TavrenProcess child("/bin/head", {"-c", "7"}, false);
    child.send("secret\n", patience);
    ASSERT_EQ(all_output(child), "secret\n");
    child.stop(0);
  }
}

TEST(Terminal, NewlinesOfTheChildStayAsTheyAre) {
  TavrenProcess child("/bin/echo", {"-n", "a\nb\r\n"}, false);
  EXPECT_EQ(all_output(child), "a\nb\r\n");
}

TEST(Terminal, IsTheControllingTerminalOfTheChild) {
  TavrenProcess child = shell("read -r line </dev/tty; echo \"$line\" >/dev/tty");
  child.send("words\n", patience);
  EXPECT_EQ(next_line(child), "words");
}

TEST(Terminal, ChildLeadsASessionOfItsOwn) {
  TavrenProcess child =
      shell("echo $$; read -r pid name state parent group session rest </proc/$$/stat; echo $session");
  const std::string pid = next_line(child);
  EXPECT_EQ(next_line(child), pid);
}
