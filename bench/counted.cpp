/*
 * Work to be counted: the same, so many times. What two runs of different length differ by is what the work takes,
 * without the program's start, its login and its end. Beside the archive host that tests/lab/archive-host raises.
 *
 *   counted chunks NUMBER    sends so many pieces of a file
 *   counted lines NUMBER     runs 20 commands, each with so many lines of output
 *   counted errors NUMBER    writes, reads and prints so many errors of 25 lines
 */
#include <stdlib.h>
#include <unistd.h>

#include <list>
#include <stdexcept>
#include <string>

#include "long_error.h"
#include "sessions.h"

namespace {

constexpr unsigned int chunk_size = 2048;
constexpr unsigned int chunks_without_rest = 8;
constexpr useconds_t rest = 1000; /* microseconds */
constexpr size_t line_size = 80;  /* bytes, with the newline */
constexpr int commands = 20;
constexpr int timeout = 600; /* seconds: what counts makes everything slow */

void send_chunks(unsigned int number) {
  const LibrarySession session = connected_session();
  const std::string chunk(chunk_size, 'x');
  session->start_send_file("/dev/null", number * chunk_size, 0644);
  for (unsigned int i = 0; i < number; ++i) {
    session->continue_send_file(chunk.data(), chunk_size);
    /* What counts is a terminal that takes the data: the client on a busy machine gets time to empty it. */
    if (i % chunks_without_rest == 0) usleep(rest);
  }
  session->end_send_file();
}

void read_lines(unsigned int number) {
  const LibrarySession session = connected_session();
  const std::string command = "yes " + std::string(line_size - 1, 'x') + " | head -n " + std::to_string(number);
  for (int i = 0; i < commands; ++i) {
    int status = -1;
    std::list<std::string> lines;
    session->run_command(command, status, lines, timeout);
    if (status != 0 || lines.size() != number) throw std::runtime_error("not the command's output");
  }
}

void pass_errors_on(unsigned int number) {
  for (unsigned int i = 0; i < number; ++i) {
    if (sent_and_printed(long_error()).empty()) throw std::runtime_error("nothing was printed");
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::string work = argv[1];
  const auto number = static_cast<unsigned int>(atoi(argv[2]));
  const ArchiveHost host("counted");
  if (work == "chunks") {
    send_chunks(number);
  } else if (work == "lines") {
    read_lines(number);
  } else if (work == "errors") {
    pass_errors_on(number);
  } else {
    return 2;
  }
  return 0;
}
