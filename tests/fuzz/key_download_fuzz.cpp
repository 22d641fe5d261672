/*
 * Whatever a client says while a host key is fetched, and whatever it leaves in the key file: the key or the error is
 * the one that the plain child leads to, in the same time, and the file is gone.
 */
#include <unistd.h>

#include "TavrenKeyDownloader.h"
#include "fuzz/played_session.h"
#include "fuzz/private_directory.h"
#include "tavren_host_util.h"

namespace {

std::string key_file() { return std::string(tavren_get_tmp_dir()) + "/downloaded_key"; }

/* Returns the key in what the client has left, if it has left anything. */
std::string key_in(const std::optional<std::string>& content) {
  if (!content) throw PlainError(5, key_file(), "2");
  if (content->empty()) throw PlainError(6, key_file(), "0");
  const std::string line = content->substr(0, content->find('\n'));
  const size_t blank = line.find(' ');
  if (blank == std::string::npos) throw PlainError(6, key_file(), "22");
  const std::string key = line.substr(blank + 1);
  if (key.size() > 895) throw PlainError(9, std::to_string(key.size()));
  return key;
}

std::string plain_download(PlainChild& child, int timeout, const std::optional<std::string>& content) {
  const std::string question = "Are you sure you want to continue connecting";
  const long deadline = child.after(timeout);
  std::string line;
  do {
    if (child.is_past(deadline)) throw PlainChild::Timeout();
  } while (!child.read_line(line, deadline, {question, "tavren_anonymous@"}));
  if (child.is_at_the_front(question)) child.send("yes\n", 5);
  child.read_until_line_starts_with({"tavren_anonymous@"}, deadline);
  return key_in(content);
}

Outcome expected_outcome(PlainChild& child, int timeout, const std::optional<std::string>& content) {
  return expected_of("/usr/bin/ssh", [&](Results& results) { results = {plain_download(child, timeout, content)}; });
}

Outcome download() {
  return outcome_of([](Results& results) {
    std::string key;
    TavrenKeyDownloader("host").download_host_key(key);
    results = {key};
  });
}

/* The same through the function for C programs, whose key ends at a NUL byte and whose error is a text. */
void check_c_function(const Outcome& expected) {
  char key[TAVREN_HOST_KEY_SIZE] = "untouched";
  char* error = nullptr;
  try {
    const int result = tavren_download_host_key("host", key, &error);
    MUST(expected.ending == (result == 0 ? "returned" : "error"));
    MUST((error == nullptr) == (result == 0));
    MUST(key == (result == 0 ? up_to_nul(expected.results.front()) : "untouched"));
  } catch (const TavrenTimeout&) {
    MUST(expected.ending == "timeout");
  }
  free(error);
}

/* What a client that has recorded the key leaves in the file. */
std::function<void()> leave(const std::optional<std::string>& content) {
  return [content] {
    MUST(access(key_file().c_str(), F_OK) == -1);
    if (!content) return;
    FILE* file = fopen(key_file().c_str(), "w");
    MUST(file != nullptr);
    MUST(fwrite(content->data(), 1, content->size(), file) == content->size());
    MUST(fclose(file) == 0);
  };
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  set_up_private_directory();
  Input input(data, size);
  played_child::Play play = behaviour_from(input);
  const bool from_c = input.flag();
  const int timeout = input.byte() % 32 - 2;
  const uint8_t file = input.byte();
  std::optional<std::string> content;
  if (file % 8 != 0) content = input.text();
  if (file % 8 == 1) *content += std::string(input.byte() * 16U + file / 8, 'k');
  play.pieces = played_child::pieces_of(
      expanded(input.rest(), {"Are you sure you want to continue connecting", "tavren_anonymous@host's password: "}));
  play.at_start = leave(content);
  set_tunable("ssh_connect_timeout", timeout);

  played_child::begin(play);
  PlainChild plain(play);
  const Outcome expected = expected_outcome(plain, timeout, content);
  plain.stop(2);
  if (from_c) {
    check_c_function(expected);
  } else {
    download().must_be(expected);
  }
  MUST(played_child::is_gone());
  MUST(played_child::heard() == plain.heard());
  MUST(played_child::uptime_ms() == plain.now_ms());
  MUST(access(key_file().c_str(), F_OK) == -1);
  return 0;
}
