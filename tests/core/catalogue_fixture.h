#ifndef TESTS_CORE_CATALOGUE_FIXTURE_H
#define TESTS_CORE_CATALOGUE_FIXTURE_H

#include <gtest/gtest.h>
#include <libintl.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/files.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"

/* Runs action in a process whose user reads the language of a translator's file. */
class CatalogueTest : public testing::Test {
 protected:
  explicit CatalogueTest(const std::string& text) {
    const std::string messages = directory.path("xx/LC_MESSAGES");
    std::filesystem::create_directories(messages);
    write_file(directory.path("tavren.po"), text);
    const std::string command = "msgfmt --check-format -o " + messages + "/tavren.mo " + directory.path("tavren.po");
    if (system(command.c_str()) != 0) throw std::runtime_error(command + " failed");
  }

  /* Texts and their translations, both as such a file has them. */
  explicit CatalogueTest(const std::vector<std::pair<std::string, std::string>>& texts)
      : CatalogueTest(file_of(texts)) {}

  Outcome run(const std::function<void()>& action, const std::string& input = "") {
    return run_in_child(
        [&] {
          setenv("LANGUAGE", "xx", 1);
          if (setlocale(LC_ALL, "C.UTF-8") == nullptr) fputs("no such locale\n", stdout);
          bindtextdomain("tavren", directory.path().c_str());
          action();
        },
        input);
  }

  /* Returns the text that show hands out, as a user of that language sees it. */
  std::string translated(const std::function<std::string()>& show) {
    return run([&] { fputs(show().c_str(), stdout); }).out;
  }

  TemporaryDirectory directory;

 private:
  static std::string file_of(const std::vector<std::pair<std::string, std::string>>& texts) {
    std::string file = R"(msgid "" msgstr "Content-Type: text/plain; charset=UTF-8\n")";
    for (const auto& [text, translation] : texts) file += "\nmsgid \"" + text + "\" msgstr \"" + translation + "\"";
    return file + "\n";
  }
};

#endif
