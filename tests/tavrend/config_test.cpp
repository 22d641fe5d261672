#include "config/config.h"

#include <gtest/gtest.h>

#include <string>

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
