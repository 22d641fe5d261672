#include <gtest/gtest.h>
#include <stdio.h>

#include <string>
#include <thread>
#include <vector>

#include "process/children.h"
#include "process/log_fixture.h"

namespace {

constexpr size_t limit = 100;
constexpr int threads_at_once = 4;
constexpr int children_of_each = 50;

/* Runs children one after another and hears each out. Returns the first result that is not as it should be. */
std::string run_children() {
  for (int i = 0; i < children_of_each; ++i) {
    const std::string result = result_of([] {
      TavrenProcess child("/bin/echo", {"word"}, false);
      next_line(child);
      child.stop(0);
    });
    if (result != "done") return result + " ";
  }
  return "";
}

/* Whether text is made of whole pieces: of banners' parts and of output. */
bool is_made_of_pieces(std::string text) {
  while (!text.empty()) {
    size_t length = 0;
    for (const std::string& piece : {rule, std::string("STARTING CHILD: /bin/echo"), std::string(" word"),
                                     std::string("\n"), std::string("word\n")}) {
      if (length < piece.size() && text.compare(0, piece.size(), piece) == 0) length = piece.size();
    }
    if (length == 0) return false;
    text.erase(0, length);
  }
  return true;
}

}  // namespace

/* Nearly every piece moves the file away, while the other threads are about to write to it. */
TEST_F(ChildOutputLog, OfManyThreadsIsWrittenAndMovedPieceByPiece) {
  const std::string output = run(std::to_string(limit), [] {
    std::vector<std::string> results(threads_at_once);
    std::vector<std::thread> threads;
    for (std::string& result : results) threads.emplace_back([&result] { result = run_children(); });
    for (std::thread& thread : threads) thread.join();
    for (const std::string& result : results) printf("%s", result.c_str());
  });
  EXPECT_EQ(output, "");
  for (const std::string& content : {previous(), current()}) {
    EXPECT_LE(content.size(), limit);
    EXPECT_TRUE(is_made_of_pieces(content)) << content;
  }
}
