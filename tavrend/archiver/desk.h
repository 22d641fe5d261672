#ifndef TAVREND_ARCHIVER_DESK_H
#define TAVREND_ARCHIVER_DESK_H

#include <stdint.h>
#include <sys/types.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "TavrenError.h"
#include "TavrenHost.h"
#include "TavrenTunables.h"
#include "config/config.h"
#include "store/store.h"

/* The task that measures the archive. */
constexpr char space_task[] = "SpaceTask";

/* The tunable of that name: what stands before every local path. */
std::string log_dir_prefix();

/* What the archiving thread does in one session. */
struct Work {
  ArchiveConfig config;
  std::vector<Section> sections; /* whose tasks are due */
  std::vector<Section> all;      /* whether they are due or not */
  bool looks_at_all = false;     /* nobody has looked at all sections as they are configured now, and none is due */
  bool measure_space = false;
  bool claim = false;   /* the directory was not claimed with this configuration */
  int64_t begun_ms = 0; /* of the monotonic clock */
};

/* The work was ended by the serving thread. */
struct Cancelled {};

/* What a compartment of the archive shows of itself. */
struct CompartmentStatus {
  int32_t used_mb = -2; /* -1: not monitored, -2: not measured yet, -3: failed */
  int32_t waiting = 0;  /* items */
  int32_t archived = 0; /* items, since the start */
};

/* How often a task runs, in seconds. */
struct Interval {
  int32_t seconds = 0;
  int32_t usual_seconds = 0; /* as it is configured */
};

struct Status {
  tavren_connection_status_t connection = TAVREN_CONNECTION_NONE;
  int64_t connection_time = 0; /* seconds since the epoch */
  CompartmentStatus compartments[2];
};

/*
 * Where the serving and the archiving thread meet, and the only place: what is configured, which tasks are due, what
 * the session is about, and the store behind all of it. Every function may be called by either thread, each locks for
 * itself, and none waits for the archive host but those that say so.
 */
class Desk {
 public:
  Desk(Store& store, const std::vector<Section>& sections, const std::string& chassis);

  /* For the serving thread. */
  bool is_enabled();
  std::optional<ArchiveConfig> config();
  Status status();
  bool is_sleeping();
  std::vector<std::string> errors();
  void clear_errors();
  std::map<std::string, Interval> intervals(); /* by task */
  /* Returns whether there is such a task. */
  bool set_interval(const std::string& task, std::optional<int32_t> seconds);
  bool run_task(const std::string& task);
  std::vector<Section> sections();
  std::vector<ArchivedFile> archived_files(const std::string& section);
  void keep_text(const std::string& kind, const std::string& text);
  std::string kept_text(const std::string& kind);

  /* These end a session in progress, and wait until the archiving thread has noticed: some seconds at the most. */
  void set_config(const std::optional<ArchiveConfig>& config, bool on);
  void set_sections(const std::vector<Section>& sections);
  void stop();

  /* Which never changes. */
  const std::string& chassis_name() const { return chassis; }

  /* For the archiving thread. Waits until there is something to do; nothing: it is to end. */
  std::optional<Work> wait_for_work();
  void work_is_done(const Work& work);
  /* The directory is claimed with the configuration of the present work, unless that has ended meanwhile. */
  void note_claim();
  void work_has_failed(double draw);

  /* Whether set_config, set_sections or stop wait for the end of the work that was handed out last. */
  bool is_cancelled();
  /* Throws Cancelled if so. */
  void check_cancelled();

  void report(const TavrenError& error);
  void set_connection(tavren_connection_status_t status, int64_t when);
  void set_used(int compartment, int32_t megabytes);
  /* How many items of a section are not archived yet, those that failed among them. */
  void set_waiting(const Section& section, int32_t items);
  void count_archived(int compartment);

  /* Runs use with the store, which nobody else uses meanwhile. */
  template <class Use>
  auto with_store(Use use) {
    const std::lock_guard<std::mutex> lock(mutex);
    return use(store);
  }

 private:
  struct Task {
    int32_t usual_interval = default_interval; /* seconds */
    int32_t interval = default_interval;
    int64_t due_ms = 0; /* of the monotonic clock */
  };

  void plan_tasks(const std::vector<Section>& new_sections);
  Task planned_task(const std::string& name, int32_t usual_interval);
  void end_the_wait_after_a_failure();
  void cancel(std::unique_lock<std::mutex>& lock);
  std::optional<Work> due_work(int64_t now_ms);
  int64_t next_look_ms() const;

  std::mutex mutex;
  std::condition_variable changed;
  Store& store;
  const std::string chassis;
  std::optional<ArchiveConfig> archive_config; /* as the store has it, */
  bool enabled;                                /* and this, too */
  std::vector<Section> all_sections;
  std::map<std::string, Task> tasks;
  Status present;                         /* but for the items that wait */
  std::map<std::string, int32_t> waiting; /* items, by section */
  int64_t retry_ms = 0;                   /* nothing is tried before */
  bool looks_first = true;                /* nobody has looked at all sections as they are configured now */
  bool is_first_look = false;             /* the last work was such a look */
  bool retry_now = false;                 /* somebody has asked for it since the last work was handed out */
  bool sleeping = true;
  bool stopping = false;
  bool cancelled = false;
  uint64_t works = 0;   /* that were handed out */
  int64_t begun_ms = 0; /* the last of them */
  pid_t archiving_thread = 0;
};

#endif
