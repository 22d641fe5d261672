#ifndef BENCH_RATIO_REPORTER_H
#define BENCH_RATIO_REPORTER_H

#include <benchmark/benchmark.h>
#include <stdio.h>

#include <map>
#include <string>
#include <vector>

/* Reports as usual, and remembers the median of each benchmark's repetitions. */
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    benchmark::ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
        medians[run.run_name.function_name] = run.GetAdjustedRealTime();
      }
    }
  }

  /* Prints how much time the one takes for each unit that the other takes. */
  void print_ratio(const std::string& measured, const std::string& beside) {
    printf("%s / %s: %.3f (medians)\n", measured.c_str(), beside.c_str(), medians[measured] / medians[beside]);
  }

 private:
  std::map<std::string, double> medians;
};

#endif
