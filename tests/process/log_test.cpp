#include <gtest/gtest.h>

#include <list>
#include <tuple>
#include <utility>

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
  run("10000", [] {
    TavrenProcess("/bin/true ", {"one", "", "t w o"}, false).stop(0);
    TavrenProcess("/bin/true", {}, false).stop(0);
  });
  EXPECT_EQ(current(), rule + "STARTING CHILD: /bin/true  one  t w o\n" + rule + "STARTING CHILD: /bin/true\n");
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

TEST_F(ChildOutputLog, IsNamedForTheProgramAtTheFirstWriteAlsoWhenItRotates) {
  const std::string banners[] = {rule + "STARTING CHILD: /bin/true\n" + rule, "STARTING CHILD: /bin/false\n"};
  for (const auto& [limit, content] : {std::pair{"10000", banners[0] + banners[1]}, {"30", banners[1]}}) {
    run(limit, [] {
      tavren_set_program_name("other");
      TavrenProcess("/bin/true", {}, false).stop(0);
      tavren_set_program_name("third");
      TavrenProcess("/bin/false", {}, false).stop(0);
    });
    EXPECT_EQ(read_file(path("tavren_child_output.other")), content);
    EXPECT_FALSE(exists("tavren_child_output.third"));
  }
}

TEST_F(ChildOutputLog, RotatesBeforeAPieceThatWouldPassTheLimit) {
  log_pieces("100", "60 50");
  expect_pieces(60, {50});
  log_pieces("100", "60 41");
  expect_pieces(60, {41});
  log_pieces("100", "60 40");
  expect_pieces(0, {60, 40});
}

TEST_F(ChildOutputLog, HoldsAPieceLargerThanTheLimitAsAWhole) {
  log_pieces("100", "20 150 30");
  expect_pieces(150, {30});
  log_pieces("-1", "21 32");
  expect_pieces(21, {32});
}

TEST_F(ChildOutputLog, KeepsTwoGenerationsAndCountsAnewInEach) {
  log_pieces("100", "61 72 83");
  expect_pieces(72, {83});
  log_pieces("100", "60 50 45");
  expect_pieces(60, {50, 45});
}

TEST_F(ChildOutputLog, WritesThePartsOfTheBannerInSeparatePieces) {
  using Arguments = std::list<std::string>;
  const std::tuple<const char*, Arguments, std::string, const char*> banners[] = {
      {"80", {"argument"}, rule, "STARTING CHILD: /bin/true argument\n"},
      {"30", {"argument", "next"}, "STARTING CHILD: /bin/true", " argument next\n"},
      {"14", {"argument", "next"}, " argument next", "\n"},
      {"25", {}, "STARTING CHILD: /bin/true", "\n"},
  };
  for (const auto& [limit, arguments, before, last] : banners) {
    const Arguments& passed = arguments;
    run(limit, [&passed] { TavrenProcess("/bin/true", passed, false).stop(0); });
    EXPECT_EQ(previous(), before);
    EXPECT_EQ(current(), last);
    std::filesystem::remove(path());
  }
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
