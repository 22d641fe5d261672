#ifndef TESTS_ENDURANCE_ENDURANCE_H
#define TESTS_ENDURANCE_ENDURANCE_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <new>
#include <string>

#include "lab/lab.h"
#include "support/process_state.h"
#include "tavren_host_util.h"

/* How often something is done: brief in everyday testing, full when scripts/endurance asks for it. */
inline int repetitions(int brief, int full) {
  const char* wanted = getenv("TAVREN_ENDURANCE");
  return wanted != nullptr && strcmp(wanted, "full") == 0 ? full : brief;
}

/* What a program holds at a moment: in years of service none of it may grow. */
struct Footprint {
  std::ptrdiff_t descriptors;
  std::ptrdiff_t children;
  long resident; /* KiB */

  static Footprint now() {
    std::ifstream list("/proc/thread-self/children");
    const std::ptrdiff_t children = std::distance(std::istream_iterator<int>(list), std::istream_iterator<int>());
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return {count_open_descriptors(), children, pages * (sysconf(_SC_PAGESIZE) / 1024)};
  }
};

inline std::ostream& operator<<(std::ostream& out, const Footprint& footprint) {
  return out << footprint.descriptors << " descriptors, " << footprint.children << " children, " << footprint.resident
             << " KiB";
}

constexpr long noise_of_a_thread = 512; /* KiB: what the allocator keeps of a moment's more work */

/* Compares what is held at the end with what was held after a warm-up. */
inline void expect_no_growth(const Footprint& early, const Footprint& late, long noise = noise_of_a_thread) {
  std::cout << "early: " << early << "\nlate: " << late << "\n";
  EXPECT_EQ(late.descriptors, early.descriptors);
  EXPECT_EQ(late.children, early.children);
  EXPECT_LE(late.resident, early.resident + noise);
}

/* A C program's session with the archive host of the lab, or with none where nobody answers. */
class Handle {
 public:
  Handle() {
    Settings settings = lab::settings();
    const tavren_settings_t record = settings.record();
    char* message = nullptr;
    handle = tavren_hp_new(&record, &message);
    if (handle == nullptr) throw std::bad_alloc();
  }
  ~Handle() {
    tavren_hp_close(handle);
    tavren_hp_destroy(handle);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  /* Opens. Returns the message, "" for success. */
  std::string open() {
    char* message = nullptr;
    const int result = tavren_hp_open(handle, &message);
    return outcome(result, message);
  }

  /* Sends a file in pieces. Returns the message, "" for success. */
  std::string send(const std::string& name, const std::string& content) {
    constexpr size_t piece = 30000;
    char* message = nullptr;
    int result = tavren_hp_start_send_file(handle, name.c_str(), static_cast<uint32_t>(content.size()), 0644, &message);
    for (size_t sent = 0; result == 0 && sent < content.size(); sent += piece) {
      const size_t length = std::min(piece, content.size() - sent);
      result = tavren_hp_continue_send_file(handle, content.data() + sent, static_cast<uint32_t>(length), &message);
    }
    if (result == 0) result = tavren_hp_end_send_file(handle, &message);
    return outcome(result, message);
  }

 private:
  static std::string outcome(int result, char* message) {
    const std::string text = message != nullptr ? message : "";
    free(message);
    return result == 0 || !text.empty() ? text : "failed without a message";
  }

  tavren_hp_t* handle;
};

#endif
