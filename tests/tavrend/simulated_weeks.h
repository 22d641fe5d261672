#ifndef TESTS_TAVREND_SIMULATED_WEEKS_H
#define TESTS_TAVREND_SIMULATED_WEEKS_H

#include <stdint.h>

#include <map>
#include <string>

#include "plan/schedule.h"
#include "tavrend/simulated_logs.h"
#include "tavrend/simulated_machine.h"

/*
 * Weeks of a machine with its logs, in which everything happens by chance: appending, rotating in two ways, failing
 * sends, ends of the daemon, a clock that jumps. What is archived is compared with what was ever written. The plan is
 * the daemon's own; carrying it out is a plain copy of what the archiver does, without threads, files and a host.
 */
namespace simulated {

/* Lets the machine live for so many intervals of the log that grows. Returns the first promise that was broken, or
 * nothing. */
inline std::string trouble_of(const Chance& chance, int intervals) {
  Machine machine(chance);
  machine.limit_mb[0] = 2;
  machine.limit_mb[1] = 40;
  Section sections[] = {{"audit", 0, 600}, {"other", 0, 900}, {"messages", 1, 300}};
  ClosedLogs audit(machine, sections[0]);
  ClosedLogs other(machine, sections[1]);
  GrowingLog messages(machine, sections[2]);
  messages.archive(); /* what was rotated before the first look is nobody's business */
  std::map<std::string, int64_t> first_run;
  for (Section& section : sections) {
    section.due_ms = first_delay_ms("CH-1", section.name, section.interval);
    first_run[section.name] = section.due_ms;
  }
  const auto work = [&](const Section& section) {
    try {
      if (&section == &sections[0]) audit.archive();
      if (&section == &sections[1]) other.archive();
      if (&section == &sections[2]) messages.archive();
    } catch (const SendFailed&) {
      /* The next run takes it up again. */
    } catch (const DaemonEnded&) {
      /* All that it knows is what it keeps. */
    }
  };
  while (sections[2].runs < intervals) {
    machine.pass(machine.chance.between(1, 120000));
    audit.live();
    other.live();
    messages.live();
    for (Section& section : sections) {
      if (machine.uptime_ms < section.due_ms) continue;
      work(section);
      ++section.runs;
      section.due_ms = next_due_ms(section.due_ms, machine.uptime_ms, section.interval);
      const int64_t expected = (machine.uptime_ms - first_run[section.name]) / (int64_t{section.interval} * 1000) + 1;
      machine.expect(section.runs == expected, "each interval has its run, whatever the clock says");
    }
  }
  machine.is_calm = true;
  for (int i = 0; i < 2; ++i) {
    for (const Section& section : sections) work(section);
    messages.finish();
  }
  work(sections[2]);
  audit.check();
  other.check();
  messages.check();
  return machine.trouble;
}

}  // namespace simulated

#endif
