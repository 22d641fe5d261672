#include <gtest/gtest.h>

#include "process/children.h"
#include "process/log_fixture.h"

TEST_F(ChildOutputLog, IsOffByDefault) {
  run("default", [] {
    TavrenProcess child("/bin/echo", {"line"}, false);
    next_line(child);
  });
  EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::path(path()).parent_path()));
}

TEST_F(ChildOutputLog, BeginsWithABannerThatShowsTheCommandAsPassed) {
  run("10000", [] { TavrenProcess("/bin/true ", {"one", "", "t w o"}, false).stop(0); });
  EXPECT_EQ(current(), rule + "STARTING CHILD: /bin/true  one  t w o\n");
}

TEST_F(ChildOutputLog, BannerOfAProgramWithoutArguments) {
  run("10000", [] { TavrenProcess("/bin/true", {}, false).stop(0); });
  EXPECT_EQ(current(), rule + "STARTING CHILD: /bin/true\n");
}

TEST_F(ChildOutputLog, HoldsTheOutputUnaltered) {
  run("10000", [] {
    TavrenProcess child("/usr/bin/printf", {"\\rline\\r\\n\\000\\377prompt: "}, false);
    all_output(child);
  });
  const std::string output("\rline\r\n\0\xffprompt: ", 17);
  EXPECT_EQ(current(), rule + "STARTING CHILD: /usr/bin/printf \\rline\\r\\n\\000\\377prompt: \n" + output);
}

TEST_F(ChildOutputLog, HoldsNothingThatIsSent) {
  run("10000", [] {
    TavrenProcess child = shell("read -r password; echo ok");
    child.send("secret\n", patience);
    next_line(child);
  });
  EXPECT_EQ(current(), rule + "STARTING CHILD: /bin/sh -c read -r password; echo ok\nok\n");
}

TEST_F(ChildOutputLog, IsSharedByAllChildren) {
  run("10000", [] {
    for (const char* word : {"first", "second"}) {
      TavrenProcess child("/bin/echo", {word}, false);
      next_line(child);
    }
  });
  EXPECT_EQ(current(),
            rule + "STARTING CHILD: /bin/echo first\nfirst\n" + rule + "STARTING CHILD: /bin/echo second\nsecond\n");
}

TEST_F(ChildOutputLog, IsNamedForTheProgramAtTheFirstWrite) {
  run("10000", [] {
    tavren_set_program_name("other");
    TavrenProcess("/bin/true", {}, false).stop(0);
    tavren_set_program_name("third");
    TavrenProcess("/bin/false", {}, false).stop(0);
  });
  EXPECT_EQ(read_file(path("tavren_child_output.other")),
            rule + "STARTING CHILD: /bin/true\n" + rule + "STARTING CHILD: /bin/false\n");
  EXPECT_FALSE(exists("tavren_child_output.third"));
}

TEST_F(ChildOutputLog, KeepsItsNameWhenItRotates) {
  run("30", [] {
    tavren_set_program_name("other");
    TavrenProcess("/bin/true", {}, false).stop(0);
    tavren_set_program_name("third");
    TavrenProcess("/bin/false", {}, false).stop(0);
  });
  EXPECT_EQ(read_file(path("tavren_child_output.other")), "STARTING CHILD: /bin/false\n");
}

TEST_F(ChildOutputLog, RotatesBeforeAPieceThatWouldPassTheLimit) {
  log_pieces("100", "60 50");
  EXPECT_EQ(previous(), piece(60));
  EXPECT_EQ(current(), piece(50));
}

TEST_F(ChildOutputLog, IsFilledUpToTheLimit) {
  log_pieces("100", "60 40");
  EXPECT_EQ(current(), piece(60) + piece(40));
  EXPECT_FALSE(exists("tavren_child_output.tester.0"));
}

TEST_F(ChildOutputLog, RotatesOneByteAfterTheLimit) {
  log_pieces("100", "60 41");
  EXPECT_EQ(previous(), piece(60));
  EXPECT_EQ(current(), piece(41));
}

TEST_F(ChildOutputLog, HoldsAPieceLargerThanTheLimitAsAWhole) {
  log_pieces("100", "20 150 30");
  EXPECT_EQ(previous(), piece(150));
  EXPECT_EQ(current(), piece(30));
}

TEST_F(ChildOutputLog, HoldsOnePieceAtATimeWhenItsLimitIsNegative) {
  log_pieces("-1", "21 32");
  EXPECT_EQ(previous(), piece(21));
  EXPECT_EQ(current(), piece(32));
}

TEST_F(ChildOutputLog, KeepsTwoGenerations) {
  log_pieces("100", "61 72 83");
  EXPECT_EQ(previous(), piece(72));
  EXPECT_EQ(current(), piece(83));
}

TEST_F(ChildOutputLog, CountsAnewInANewFile) {
  log_pieces("100", "60 50 45");
  EXPECT_EQ(previous(), piece(60));
  EXPECT_EQ(current(), piece(50) + piece(45));
}

TEST_F(ChildOutputLog, WritesTheBannerInSeparatePieces) {
  run("80", [] { TavrenProcess("/bin/true", {"argument"}, false).stop(0); });
  EXPECT_EQ(previous(), rule);
  EXPECT_EQ(current(), "STARTING CHILD: /bin/true argument\n");
}

TEST_F(ChildOutputLog, WritesEachArgumentAsAPieceOfItsOwn) {
  run("30", [] { TavrenProcess("/bin/true", {"argument", "next"}, false).stop(0); });
  EXPECT_EQ(previous(), "STARTING CHILD: /bin/true");
  EXPECT_EQ(current(), " argument next\n");
}

TEST_F(ChildOutputLog, WritesTheLineEndOfTheBannerAsAPieceOfItsOwn) {
  run("14", [] { TavrenProcess("/bin/true", {"argument", "next"}, false).stop(0); });
  EXPECT_EQ(previous(), " argument next");
  EXPECT_EQ(current(), "\n");
}

TEST_F(ChildOutputLog, WritesTheLineEndAsAPieceOfItsOwnWithoutArgumentsToo) {
  run("25", [] { TavrenProcess("/bin/true", {}, false).stop(0); });
  EXPECT_EQ(previous(), "STARTING CHILD: /bin/true");
  EXPECT_EQ(current(), "\n");
}

TEST_F(ChildOutputLog, HoldsNothingOfWhatIsDroppedAsExcessive) {
  run("0", [] {
    TavrenProcess child("/bin/cat", {"/dev/zero"}, false);
    set_limit("1000000");
    result_of_reading_on(child);
  });
  EXPECT_LE(current().size(), 102400U);
}

TEST_F(ChildOutputLog, MayBeTurnedOnAndOff) {
  run("0", [] {
    TavrenProcess child("/bin/cat", {}, false);
    for (const char* limit : {"0", "1000", "0", "1000"}) {
      set_limit(limit);
      child.send(std::string(limit) + "\n", patience);
      next_line(child);
    }
  });
  EXPECT_EQ(current(), "1000\n1000\n");
}
