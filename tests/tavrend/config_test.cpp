#include "config/config.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "support/files.h"
#include "support/temporary_directory.h"

namespace {

class ConfigFile : public testing::Test {
 protected:
  std::vector<Section> read(const std::string& text) const {
    write_file(path, text);
    return read_config(path);
  }

  /* Returns what is wrong with text, without the file's path. */
  std::string error_of(const std::string& text) const {
    try {
      read(text);
    } catch (const ConfigError& error) {
      const std::string reason = error.what();
      return reason.rfind(path + ":", 0) == 0 ? reason.substr(path.size() + 1) : reason;
    }
    return "none";
  }

  static std::string reason_of(const std::string& file) {
    try {
      read_config(file);
    } catch (const ConfigError& error) {
      return error.what();
    }
    return "none";
  }

  const TemporaryDirectory directory;
  const std::string path = directory.path("tavrend.conf");
};

}  // namespace

TEST_F(ConfigFile, OfClosedFilesAndOfOneThatGrows) {
  const auto sections = read(
      "# comment\n"
      "[audit]\n"
      "files = /var/log/audit/audit.log.[0-9]*     ; closed files\n"
      "compartment = audit\n"
      "interval = 1h\n"
      "\n"
      "[messages]\n"
      "follow = /var/log/messages\n"
      "interval = 10min\n"
      "compress = zstd\n");
  ASSERT_EQ(sections.size(), 2U);
  EXPECT_EQ(sections[0].name, "audit");
  EXPECT_EQ(sections[0].files, "/var/log/audit/audit.log.[0-9]*");
  EXPECT_EQ(sections[0].follow, "");
  EXPECT_EQ(sections[0].compartment, audit_compartment);
  EXPECT_EQ(sections[0].interval, 3600);
  EXPECT_FALSE(sections[0].compress);
  EXPECT_EQ(sections[1].name, "messages");
  EXPECT_EQ(sections[1].files, "");
  EXPECT_EQ(sections[1].follow, "/var/log/messages");
  EXPECT_EQ(sections[1].compartment, logs_compartment);
  EXPECT_EQ(sections[1].interval, 600);
  EXPECT_TRUE(sections[1].compress);
  EXPECT_EQ(task_of(sections[0]), "LogTypeTask.audit");
}

TEST_F(ConfigFile, MayBeEmpty) { EXPECT_EQ(read("").size(), 0U); }

TEST_F(ConfigFile, HasDefaults) {
  const auto sections = read("[a]\nfollow=/x");
  ASSERT_EQ(sections.size(), 1U);
  EXPECT_EQ(sections[0].compartment, logs_compartment);
  EXPECT_EQ(sections[0].interval, default_interval);
  EXPECT_FALSE(sections[0].compress);
}

TEST_F(ConfigFile, MaySayTheDefaults) {
  const auto sections = read("[a]\nfollow = /x\ncompartment = logs\ncompress = none\n");
  EXPECT_EQ(sections[0].compartment, logs_compartment);
  EXPECT_FALSE(sections[0].compress);
}

TEST_F(ConfigFile, ThatIsNotThereIsAnError) {
  try {
    read_config(directory.path("none"));
    FAIL();
  } catch (const ConfigError& error) {
    EXPECT_EQ(error.what(), directory.path("none") + ": No such file or directory");
  }
}

TEST_F(ConfigFile, ThatIsADirectoryIsAnError) { EXPECT_THROW(read_config(directory.path()), ConfigError); }

TEST_F(ConfigFile, ErrorsHaveTheirLine) {
  EXPECT_EQ(error_of("[a]\nfollow = /x\ncolour = red\n"), "3: there is no key \"colour\"");
  EXPECT_EQ(error_of("follow = /x\n"), "1: \"follow\" stands before the first section");
  EXPECT_EQ(error_of("[a]\nfollow = /x\nfollow = /y\n"), "3: \"follow\" is there twice");
  EXPECT_EQ(error_of("[a]\nfollow = /x\n[b]\nfollow = /y\n[a]\nfollow = /z\n"), "5: section \"a\" is there twice");
  EXPECT_EQ(error_of("[a]\nfollow = /x\n[a]\ninterval = 1\n"), "3: section \"a\" is there twice");
  EXPECT_EQ(error_of("[a]\n[b]\nfollow = /y\n"), "2: section \"a\" has neither \"files\" nor \"follow\"");
  EXPECT_EQ(error_of("[a]\ninterval = 1\n"), "2: section \"a\" has neither \"files\" nor \"follow\"");
  EXPECT_EQ(error_of("[a]\nfiles = /x\nfollow = /y\n"), "3: section \"a\" has both \"files\" and \"follow\"");
  EXPECT_EQ(error_of("[a]\nfollow = /x\nnonsense\n"), "3: this is neither a section nor a key with its value");
  EXPECT_EQ(error_of("[a\nfollow = /x\n"), "1: this is neither a section nor a key with its value");
}

TEST_F(ConfigFile, ValuesAreChecked) {
  const std::string section = "[a]\nfollow = /x\n";
  EXPECT_EQ(error_of("[a]\nfollow = x\n"), "2: \"x\" is nothing for \"follow\": an absolute path");
  EXPECT_EQ(error_of("[a]\nfiles =\n"), "2: \"\" is nothing for \"files\": an absolute path");
  EXPECT_EQ(error_of(section + "compartment = Audit\n"),
            "3: \"Audit\" is nothing for \"compartment\": \"audit\" or \"logs\"");
  EXPECT_EQ(error_of(section + "compress = gzip\n"), "3: \"gzip\" is nothing for \"compress\": \"zstd\" or \"none\"");
  for (const char* interval : {"0", "366d", "1m", "soon"}) {
    EXPECT_EQ(error_of(section + "interval = " + interval + "\n"),
              "3: \"" + std::string(interval) +
                  "\" is nothing for \"interval\": a number of seconds, or with s, min, h, d; from 1 s to 365 d");
  }
}

/* Neither would ever be found, and a log that is not there yet is no error. */
TEST_F(ConfigFile, PathsOfDirectoriesAreRefused) {
  EXPECT_EQ(error_of("[a]\nfollow = /var/log/\n"),
            "2: \"/var/log/\" is nothing for \"follow\": a file's path, which no slash ends");
  EXPECT_EQ(error_of("[a]\nfiles = /*/\n"), "2: \"/*/\" is nothing for \"files\": a file's path, which no slash ends");
}

/* tavren_ctl setup tests the host in a directory of that name, and removes it. */
TEST_F(ConfigFile, NoSectionHasTheNameOfTheDirectoryThatATestRemoves) {
  EXPECT_EQ(error_of("[test]\nfollow = /a\n"),
            "1: \"test\" is no name of a section: a test of the archive host removes that directory");
}

TEST_F(ConfigFile, SectionNamesAreChecked) {
  for (const std::string& name : {std::string("a"), std::string("a-b_9"), std::string(32, 'x')}) {
    EXPECT_EQ(error_of("[" + name + "]\nfollow = /x\n"), "none") << name;
  }
  for (const std::string& name : {std::string(""), std::string("A"), std::string("a b"), std::string("a/b"),
                                  std::string("."), std::string(33, 'x'), std::string("\xC3\xA4")}) {
    EXPECT_EQ(error_of("[" + name + "]\nfollow = /x\n"),
              "1: \"" + name + "\" is no name of a section: up to 32 of a-z, 0-9, \"_\" and \"-\"")
        << name;
  }
}

TEST_F(ConfigFile, LinesMayBeLong) {
  const std::string log = "/" + std::string(4000, 'x');
  EXPECT_EQ(read("[a]\nfollow = " + log + "\n")[0].follow, log);
  EXPECT_EQ(error_of("[a]\nfollow = /" + std::string(9000, 'x') + "\n"),
            "2: the line is too long, or has a NUL byte in it");
}

TEST_F(ConfigFile, ANulByteIsAnError) {
  EXPECT_EQ(error_of(std::string("[a]\nfollow = /x\0y\n", 18)), "2: the line is too long, or has a NUL byte in it");
}

TEST_F(ConfigFile, IndentedLinesContinueNothing) {
  EXPECT_EQ(error_of("[a]\nfollow = /x\n  /y\n"), "3: \"follow\" is there twice");
}

TEST_F(ConfigFile, IntervalsHaveTheirBordersAndUnits) {
  const std::pair<const char*, int32_t> good[] = {{"1", 1},
                                                  {"31536000", 31536000},
                                                  {"31536000s", 31536000},
                                                  {"1s", 1},
                                                  {"90min", 5400},
                                                  {"525600min", 31536000},
                                                  {"8760h", 31536000},
                                                  {"24h", 86400},
                                                  {"365d", 31536000},
                                                  {"007", 7}};
  for (const auto& [text, seconds] : good) {
    EXPECT_EQ(read("[a]\nfollow = /x\ninterval = " + std::string(text))[0].interval, seconds) << text;
  }
  for (const char* text : {"",
                           "0",
                           "0d",
                           "-1",
                           "+1",
                           "31536001",
                           "525601min",
                           "8761h",
                           "366d",
                           "9999999999999999999999",
                           "9223372036854775807d",
                           "1 h",
                           "1h h",
                           "h",
                           "1H",
                           "1.5h",
                           "0x10",
                           "1week",
                           "1,5",
                           "1h1min"}) {
    EXPECT_EQ(error_of("[a]\nfollow = /x\ninterval = " + std::string(text)).substr(0, 3), "3: ") << text;
  }
}

TEST_F(ConfigFile, CommentsStandAloneOrBehindABlank) {
  const auto sections = read(
      "; first\n"
      "  # indented\n"
      "[a] ; behind a section\n"
      "files = /x;y#z ; behind a value\n"
      "interval = 5 ;\n"
      ";interval = 6\n");
  ASSERT_EQ(sections.size(), 1U);
  EXPECT_EQ(sections[0].files, "/x;y#z");
  EXPECT_EQ(sections[0].interval, 5);
  EXPECT_EQ(error_of("[a]\nfollow = /x\ninterval = 5;\n").substr(0, 7), "3: \"5;\"");
}

TEST_F(ConfigFile, MayBeginWithAByteOrderMark) {
  const auto sections = read("\xEF\xBB\xBF[a]\nfollow = /x\n");
  ASSERT_EQ(sections.size(), 1U);
  EXPECT_EQ(sections[0].name, "a");
  EXPECT_EQ(error_of("\xEF\xBB\xBF"
                     "follow = /x\n"),
            "1: \"follow\" stands before the first section");
  EXPECT_EQ(error_of("[a]\nfollow = /x\n\xEF\xBB\xBF[b]\nfollow = /y\n"),
            "3: this is neither a section nor a key with its value");
}

TEST_F(ConfigFile, SectionsMayBeIndented) {
  const auto sections = read("\t [a]\n\tfollow = /x\n");
  ASSERT_EQ(sections.size(), 1U);
  EXPECT_EQ(sections[0].follow, "/x");
  EXPECT_EQ(error_of("[a]\nfollow = /x\n [b]\nfollow = /y\n").substr(0, 3), "3: ");
}

TEST_F(ConfigFile, MayHaveBlanksAndWindowsLineEnds) {
  const auto sections = read("[a]\r\n\tfollow\t=\t/x y\t\r\ninterval=5\r\n\r\n[b]\r\nfiles: /y\r\n");
  ASSERT_EQ(sections.size(), 2U);
  EXPECT_EQ(sections[0].follow, "/x y");
  EXPECT_EQ(sections[0].interval, 5);
  EXPECT_EQ(sections[1].files, "/y");
}

TEST_F(ConfigFile, NeedsNoNewlineAtItsEnd) {
  EXPECT_EQ(read("[a]\nfollow = /x")[0].follow, "/x");
  EXPECT_EQ(error_of("[a]\nfollow = /x\n[b]"), "3: section \"b\" has neither \"files\" nor \"follow\"");
}

TEST_F(ConfigFile, WithoutASectionButWithKeysIsAnError) {
  EXPECT_EQ(error_of("\n\ninterval = 5\n"), "3: \"interval\" stands before the first section");
  EXPECT_EQ(error_of("# nothing\n\n"), "none");
}

TEST_F(ConfigFile, OfSeveralErrorsTheFirstIsSaid) {
  EXPECT_EQ(error_of("[a]\nfollow = x\ncolour = red\n"), "2: \"x\" is nothing for \"follow\": an absolute path");
  EXPECT_EQ(error_of("[a]\ncolour = red\nnonsense\n"), "2: there is no key \"colour\"");
  EXPECT_EQ(error_of("[a]\nnonsense\ncolour = red\n"), "2: this is neither a section nor a key with its value");
  EXPECT_EQ(error_of("[A]\ncolour = red\n"), "1: \"A\" is no name of a section: up to 32 of a-z, 0-9, \"_\" and \"-\"");
}

TEST_F(ConfigFile, KeysHaveTheirExactNames) {
  for (const char* key : {"Files", "file", "follows", "FOLLOW", "compression", "interval s", "limit"}) {
    EXPECT_EQ(error_of("[a]\n" + std::string(key) + " = /x\n"), "2: there is no key \"" + std::string(key) + "\"");
  }
}

TEST_F(ConfigFile, ValuesHaveTheirExactNames) {
  for (const char* value : {"", "AUDIT", "audit logs", "0", "log"}) {
    EXPECT_EQ(error_of("[a]\nfollow = /x\ncompartment = " + std::string(value)),
              "3: \"" + std::string(value) + "\" is nothing for \"compartment\": \"audit\" or \"logs\"");
  }
  for (const char* value : {"", "Zstd", "zstd 9", "yes", "zst"}) {
    EXPECT_EQ(error_of("[a]\nfollow = /x\ncompress = " + std::string(value)),
              "3: \"" + std::string(value) + "\" is nothing for \"compress\": \"zstd\" or \"none\"");
  }
}

TEST_F(ConfigFile, MayHaveManySections) {
  std::string text;
  for (int i = 0; i < 500; ++i) text += "[s" + std::to_string(i) + "]\nfollow = /log/" + std::to_string(i) + "\n";
  const auto sections = read(text);
  ASSERT_EQ(sections.size(), 500U);
  EXPECT_EQ(sections[499].name, "s499");
  EXPECT_EQ(sections[499].follow, "/log/499");
}

TEST_F(ConfigFile, ThatCannotBeReadSaysWhy) {
  EXPECT_EQ(reason_of(directory.path()), directory.path() + ": Is a directory");
  EXPECT_EQ(reason_of(directory.path("tavrend.conf/x")),
            directory.path("tavrend.conf/x") + ": No such file or directory");
  write_file(path, "");
  EXPECT_EQ(reason_of(path + "/x"), path + "/x: Not a directory");
}

TEST_F(ConfigFile, ThatIsShippedFollowsTheLogsOfAUsualDebian) {
  const auto sections = read_config(SHIPPED_CONFIG);
  std::vector<std::string> followed;
  for (const Section& section : sections) followed.push_back(section.follow);
  const std::vector<std::string> usual = {"/var/log/syslog", "/var/log/auth.log", "/var/log/kern.log",
                                          "/var/log/dpkg.log"};
  EXPECT_EQ(followed, usual);
}

/* The examples in it, which one has only to uncomment. */
TEST_F(ConfigFile, ThatIsShippedHasExamplesOfAServiceProcessor) {
  const std::string shipped = read_file(SHIPPED_CONFIG);
  std::istringstream examples(shipped.substr(shipped.find("; [")));
  std::string uncommented;
  for (std::string line; std::getline(examples, line);) uncommented += line.substr(line.size() < 2 ? 1 : 2) + "\n";
  const auto sections = read(uncommented);
  ASSERT_EQ(sections.size(), 2U);
  EXPECT_EQ(sections[0].files, "/var/log/audit/audit.log.[0-9]*");
  EXPECT_EQ(sections[1].follow, "/var/log/messages");
}
