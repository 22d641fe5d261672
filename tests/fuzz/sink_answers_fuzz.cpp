/* Whatever the far side answers to files and streams: the steps end as the plain host's do, and in the same time. */
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/played_session.h"

namespace {

struct Step {
  int kind;
  uint32_t size;
  int announced;    /* size of a file that is sent from a descriptor */
  std::string text; /* path or data */
};

std::vector<Step> steps_from(Input& input) {
  std::vector<Step> steps;
  for (int count = 1 + input.byte() % 8; count > 0; --count) {
    const int kind = input.byte() % 9;
    const uint32_t size = kind == 0 || kind == 6 || kind == 8 ? input.byte() * 257U : 0;
    /* More than it has, less, or what it has. */
    const int difference = kind == 8 ? static_cast<int8_t>(input.byte()) : 0;
    const int announced = difference == -128 ? -1 : std::max(static_cast<int>(size) + difference, 0);
    steps.push_back({kind, size, announced, kind == 2 || kind == 5 ? "" : input.text()});
  }
  return steps;
}

constexpr unsigned int mode = 0644;

std::string data_of(const Step& step) { return std::string(step.size, 'd'); }

/* A file in memory, open for reading. */
class File {
 public:
  explicit File(const std::string& content) : fd(memfd_create("file", MFD_CLOEXEC)) {
    MUST(fd != -1 && write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    MUST(lseek(fd, 0, SEEK_SET) == 0);
  }
  ~File() { close(fd); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  const int fd;
};

/* Sends what is there, piece by piece, and fails where there is no more. */
void send_file(PlainHost& host, const Step& step) {
  const std::string data = data_of(step);
  const size_t total = step.announced < 0 ? data.size() : static_cast<size_t>(step.announced);
  host.start_file(step.text, static_cast<uint32_t>(total), mode);
  for (size_t sent = 0; sent < total;) {
    const std::string piece = data.substr(std::min(sent, data.size()), std::min<size_t>(total - sent, 2048));
    if (piece.empty()) throw PlainError(24, "read(a name)", "0");
    host.go_on(piece);
    sent += piece.size();
  }
  host.end_file();
}

void perform(TavrenHost& host, const Step& step) {
  const auto length = static_cast<unsigned int>(step.text.size());
  const std::function<void()> kinds[] = {
      [&] { host.start_send_file(step.text, step.size, mode); },
      [&] { host.continue_send_file(step.text.data(), length); },
      [&] { host.end_send_file(); },
      [&] { host.start_send_stream(step.text); },
      [&] { host.continue_send_stream(step.text.data(), length); },
      [&] { host.end_send_stream(); },
      [&] { host.send_data(data_of(step).data(), static_cast<int>(step.size), step.text, mode); },
      [&] { host.remove_file(step.text); },
      [&] { host.send_file(File(data_of(step)).fd, "a name", step.text, step.announced, mode); }};
  kinds[step.kind]();
}

void perform(PlainHost& host, const Step& step) {
  const std::function<void()> kinds[] = {[&] { host.start_file(step.text, step.size, mode); },
                                         [&] { host.go_on(step.text); },
                                         [&] { host.end_file(); },
                                         [&] { host.start_stream(step.text); },
                                         [&] { host.go_on(step.text); },
                                         [&] { host.end_stream(); },
                                         [&] { host.send_data(data_of(step), step.text, mode); },
                                         [&] { host.remove_file(step.text); },
                                         [&] { send_file(host, step); }};
  kinds[step.kind]();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  played_child::Play play = behaviour_after_login(input);
  const int seconds = input.byte() % 16;
  const std::vector<Step> steps = steps_from(input);
  const std::string said = expanded(input.rest(), {"_TAV/REN_ BEGIN\n", "\n_TAV/REN_ END\n", std::string(4, '\0')});
  perform_after_login(play, said, seconds, steps, [](auto& host, const Step& step, Results&) { perform(host, step); });
  return 0;
}
