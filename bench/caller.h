/* A caller of the archiving daemon that bench/beside-tavrend has started. */
#ifndef BENCH_CALLER_H
#define BENCH_CALLER_H

#include <chrono>
#include <stdexcept>
#include <string>

#include "sessions.h"
#include "tavren_api.h"

/* Throws unless a call of the client interface has succeeded. */
inline void need(int result, const char* what) {
  if (result != 0) throw std::runtime_error(std::string(what) + ": " + std::to_string(result));
}

class Caller {
 public:
  Caller() { need(tavren_api_open(&handle), "tavren_api_open"); }
  ~Caller() { tavren_api_close(&handle); }
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

  /* Returns the seconds until the answer. */
  double ask() {
    const auto start = std::chrono::steady_clock::now();
    status();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }

  void configure() {
    std::string texts[] = {from_environment("LAB_HOST"),     from_environment("LAB_ARCHIVE"),
                           from_environment("LAB_USER"),     from_environment("LAB_PASSWORD"),
                           from_environment("LAB_HOST_KEY"), ""};
    const tavren_config_t config = {
        {texts[0].data(), texts[1].data(), texts[2].data(), texts[3].data(), texts[4].data(), texts[5].data()},
        {-1, -1}};
    need(tavren_api_set_config(&handle, &config, 1), "tavren_api_set_config");
  }

  /* Makes the task of the daemon's one section due now. */
  void run_task() { need(tavren_api_run_task(&handle, "LogTypeTask.large"), "tavren_api_run_task"); }

  bool is_sleeping() {
    int sleeping = 0;
    need(tavren_api_is_tavrend_sleeping(&handle, &sleeping), "tavren_api_is_tavrend_sleeping");
    return sleeping != 0;
  }

  /* Returns how many items of the compartment of that section were archived since the daemon's start. */
  int archived() { return status().compartment_status[1].word3; }

 private:
  tavren_status_t status() {
    tavren_status_t now{};
    need(tavren_api_get_status(&handle, &now), "tavren_api_get_status");
    return now;
  }

  tavren_api_handle_t handle{};
};

#endif
