#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tavren.h>
#include <tavren_rpc.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "daemon/wire.h"
#include "support/files.h"

/*
 * What the documents of formats show is what the library reads and writes.
 */
namespace {

/* Returns what stands in a document behind a heading, up to the next one. */
std::string section(const std::string& document, const std::string& heading) {
  std::ifstream in(DOCUMENTS "/" + document);
  std::string line, text;
  while (std::getline(in, line) && line != heading) {
  }
  EXPECT_EQ(line, heading) << document;
  while (std::getline(in, line) && line[0] != '#') text += line + '\n';
  return text;
}

/* Returns the bytes of the lines that hold two hexadecimal digits for each. */
std::string bytes_in(const std::string& text) {
  static const std::regex line("    (([0-9a-f]{2} ?)+)");
  std::string bytes;
  std::istringstream in(text);
  for (std::string s; std::getline(in, s);) {
    std::smatch match;
    if (!std::regex_match(s, match, line)) continue;
    std::istringstream digits(match[1]);
    for (int byte = 0; digits >> std::hex >> byte;) bytes += static_cast<char>(byte);
  }
  return bytes;
}

/* Returns the first two columns of a table, by the first, without quotes and the escaping of the document. */
std::map<std::string, std::string> rows_in(const std::string& text) {
  static const std::regex row("^\\| `?([a-z0-9_]+)`? \\| `?(.*?)`? ?\\|( .*)?$");
  std::map<std::string, std::string> rows;
  std::istringstream in(text);
  for (std::string s; std::getline(in, s);) {
    std::smatch match;
    if (std::regex_match(s, match, row) && match[1] != "name" && match[1] != "code") rows[match[1]] = match[2];
  }
  return rows;
}

/* Returns the text of each entry of a list in a page of the manual, by the name that it begins with. */
std::map<std::string, std::string> entries_in(const std::string& page) {
  static const std::regex entry("\\.It Cm ([a-z_]+)");
  std::ifstream in(DOCUMENTS "/man/" + page);
  std::map<std::string, std::string> entries;
  std::string* text = nullptr;
  for (std::string line; std::getline(in, line);) {
    std::smatch match;
    if (std::regex_match(line, match, entry)) {
      text = &entries[match[1]];
    } else if (line == ".El") {
      text = nullptr;
    } else if (text != nullptr) {
      *text += line + ' ';
    }
  }
  return entries;
}

/* The error of the example. */
TavrenError example_error() {
  TavrenError error(TAVREN_E_SSH_START, "h1", "");
  error.add_line(TAVREN_E_LOGIN_DENIED, "", "");
  error.time = 1000;
  return error;
}

TEST(Documents, ShowASerialisedErrorAsItIs) {
  std::ostringstream buffer;
  buffer << '1' << '\0';
  example_error().serialize(buffer);
  EXPECT_EQ(bytes_in(section("serialised-errors.md", "## A buffer of errors")), buffer.str());
}

TEST(Documents, ShowAPrintedErrorAsItIs) {
  ASSERT_EQ(setenv("TZ", "UTC", 1), 0);
  std::ostringstream printed;
  example_error().print(printed);
  EXPECT_NE(std::regex_replace(section("serialised-errors.md", "## Printing"), std::regex("\n {4}"), "\n")
                .find(printed.str()),
            std::string::npos);
}

TEST(Documents, HaveTheFormatOfEveryError) {
  const auto rows = rows_in(section("serialised-errors.md", "## Printing"));
  for (int code = -1; code < 100; ++code) {
    const char* format = TavrenError::get_format_string(static_cast<tavren_error_code_t>(code));
    const auto found = rows.find(std::to_string(code));
    EXPECT_EQ(found == rows.end() ? "" : found->second, format == nullptr ? "" : format) << code;
  }
}

TEST(Documents, ShowAConfigurationAsItTravels) {
  char host[] = "h", directory[] = "/a", user[] = "u", password[] = "pw", none[] = "";
  tavren_config_t config = {{host, directory, user, password, none, none}, {100, TAVREN_SPACE_UNLIMITED}};
  EXPECT_EQ(bytes_in(section("daemon-protocol.md", "### Configuration")),
            wire::encoded(xdr_tavren_rpc_set_config_1_argument, {&config, TRUE}));
}

TEST(Documents, ShowAStatusAsItTravels) {
  EXPECT_EQ(bytes_in(section("daemon-protocol.md", "### Status")),
            wire::encoded(xdr_tavren_status_t, {1000, TAVREN_CONNECTION_OK, {{1, 2, 3}, {4, 5, -1}}}));
}

TEST(Documents, ShowBytesAsTheyTravel) {
  char bytes[] = {0x31, 0, static_cast<char>(0xff)};
  EXPECT_EQ(bytes_in(section("daemon-protocol.md", "### Bytes")),
            wire::encoded(xdr_tavren_bytes_t, {0, {sizeof bytes, bytes}}));
}

/* The protocol's description comes first: what it has, the documents tell of. */
TEST(Documents, HaveEveryProcedure) {
  static const std::regex procedure("TAVREN_RPC_([A-Z_]+)\\(.*\\) = ([0-9]+);");
  const std::string description = read_file(DOCUMENTS "/tavrend.x");
  const std::string table = section("daemon-protocol.md", "## What our daemon does");
  const std::string groups = read_file(DOCUMENTS "/man/tavren_protocol.7");
  int count = 0;
  for (std::sregex_iterator one(description.begin(), description.end(), procedure), end; one != end; ++one) {
    ++count;
    if ((*one)[1] != "NULL") {
      EXPECT_THAT(table, testing::HasSubstr("`" + (*one)[1].str() + "`"));
    }
    const int number = std::stoi((*one)[2]);
    EXPECT_TRUE(number <= 8 || (number >= 21 && number <= 24) || (number >= 41 && number <= 48)) << number;
  }
  EXPECT_THAT(groups, testing::HasSubstr("0 to 8, 21 to 24 and 41 to 48"));
  EXPECT_THAT(read_file(DOCUMENTS "/architecture.txt"), testing::HasSubstr("the " + std::to_string(count) + " calls"));
}

TEST(Documents, HaveEveryTunableWithItsDefault) {
  std::ostringstream table;
  TavrenTunables::instance().print_tunable_table(table);
  std::istringstream in(std::regex_replace(table.str(), std::regex("^TUNABLE.*\n-.*\n"), ""));
  std::map<std::string, std::string> tunables;
  for (std::string line; std::getline(in, line);) {
    const size_t blank = line.find(' ');
    const size_t value = line.find_first_not_of(' ', blank);
    tunables[line.substr(0, blank)] = value == std::string::npos ? "" : line.substr(value);
  }
  EXPECT_EQ(rows_in(section("tunables.md", "## Names and values")), tunables);
  EXPECT_EQ(rows_in(section("../README.md", "## Tunables")), tunables);

  const auto entries = entries_in("tavren_tunables.7");
  EXPECT_EQ(entries.size(), tunables.size());
  for (const auto& [name, value] : tunables) {
    const auto entry = entries.find(name);
    ASSERT_NE(entry, entries.end()) << name;
    const std::regex says_it(" " + (value.empty() ? "empty" : value) + "(, the default,|\\.)( |$)");
    EXPECT_TRUE(std::regex_search(entry->second, says_it)) << entry->second;
  }
}

TEST(Documents, HaveEveryCommandWithItsText) {
  TavrenHost::reset_cmd_map();
  std::ostringstream lines;
  TavrenHost::print_cmds(lines);
  std::string expected;
  for (const auto& [name, text] : rows_in(section("command-texts.md", "## Names and texts"))) {
    expected += name + '=' + text + " \n";
  }
  EXPECT_EQ(expected, lines.str());

  static const std::regex row("\\.It ([a-z]+) Ta (.*) Ta .*");
  std::ifstream page(DOCUMENTS "/man/tavren_commands.7");
  std::string shown;
  for (std::string line; std::getline(page, line);) {
    std::smatch match;
    if (std::regex_match(line, match, row)) shown += match[1].str() + '=' + match[2].str() + " \n";
  }
  EXPECT_EQ(shown, lines.str());
}

TEST(Documents, HaveLinksThatLeadSomewhere) {
  static const std::regex link("\\]\\(([^)#:]+)\\)");
  int count = 0;
  for (const std::filesystem::path directory : {DOCUMENTS, DOCUMENTS "/.."}) {
    for (const auto& file : std::filesystem::directory_iterator(directory)) {
      if (file.path().extension() != ".md") continue;
      const std::string text = read_file(file.path());
      for (auto found = std::sregex_iterator(text.begin(), text.end(), link); found != std::sregex_iterator();
           ++found) {
        EXPECT_TRUE(std::filesystem::exists(directory / (*found)[1].str())) << file.path() << ": " << (*found)[1];
        ++count;
      }
    }
  }
  EXPECT_GT(count, 50);
}

TEST(Documents, QuoteAsTheLibraryDoes) {
  EXPECT_NE(
      section("framed-commands.md", "## Quoting").find("`it's` becomes `" + TavrenHost::quote_for_shell("it's") + "`"),
      std::string::npos);
}

}  // namespace
