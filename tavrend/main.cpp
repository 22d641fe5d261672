/*
 * tavrend: archives a service processor's logs on its archive host.
 */
#include <getopt.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/signalfd.h>
#include <syslog.h>
#include <unistd.h>

#include <exception>
#include <string>
#include <thread>

#include "archiver/archiver.h"
#include "archiver/desk.h"
#include "config/config.h"
#include "service/procedures.h"
#include "service/server.h"
#include "store/store.h"
#include "tavren_assert.h"
#include "tavren_basic.h"
#include "tavren_share.h"
#include "tavren_version.h"

namespace {

constexpr char default_state_directory[] = "/var/lib/tavren";

struct Options {
  std::string config = default_config_file;
  std::string state = default_state_directory;
};

constexpr char usage[] =
    "usage: tavrend [--config FILE] [--state DIRECTORY]\n"
    "       tavrend --version | --help\n"
    "Archives logs on the archive host, in the foreground, until SIGTERM; reads its configuration again on SIGHUP.\n";

Options options_from(int argc, char** argv) {
  static const option known[] = {{"config", required_argument, nullptr, 'c'},
                                 {"state", required_argument, nullptr, 's'},
                                 {"version", no_argument, nullptr, 'v'},
                                 {"help", no_argument, nullptr, 'h'},
                                 {nullptr, 0, nullptr, 0}};
  Options options;
  for (int c = 0; (c = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
    if (c == 'c') {
      options.config = optarg;
    } else if (c == 's') {
      options.state = optarg;
    } else if (c == 'v') {
      puts("tavrend " TAVREN_VERSION_TEXT);
      exit(0);
    } else {
      fputs(usage, c == 'h' ? stdout : stderr);
      exit(c == 'h' ? 0 : 2);
    }
  }
  if (optind != argc) {
    fputs(usage, stderr);
    exit(2);
  }
  return options;
}

/* Says why there is no start, to whoever has started it and to the system log. */
int refuse(const std::string& reason) {
  fprintf(stderr, "tavrend: %s\n", reason.c_str());
  syslog(LOG_ERR, "%s", reason.c_str());
  return 1;
}

/* Blocks the signals that the serving thread takes, for all threads, and returns where they come in. */
int open_signals() {
  sigset_t taken;
  sigemptyset(&taken);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&taken, number);
  pthread_sigmask(SIG_BLOCK, &taken, nullptr);
  signal(SIGPIPE, SIG_IGN);
  return signalfd(-1, &taken, SFD_CLOEXEC);
}

std::string chassis() {
  const char* id = "";
  const char* failed_call = nullptr;
  return tavren_get_chassis_id(&id, &failed_call) == 0 ? id : "";
}

void reload(Desk& desk, const std::string& file) {
  try {
    desk.set_sections(read_config(file));
    syslog(LOG_NOTICE, "%s was read again", file.c_str());
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "the configuration stays as it was: %s", error.what());
  }
}

void work(const Options& options, const std::vector<Section>& sections, int signals) {
  Store store(options.state);
  Desk desk(store, sections, chassis());
  load_kept_texts(desk);
  Server server(desk);
  Archiver archiver(desk, options.state);
  std::thread archiving([&archiver] { archiver.run(); });
  syslog(LOG_NOTICE, "started, with %zu log types", sections.size());
  try {
    server.serve(signals, [&](int number) {
      if (number != SIGHUP) return false;
      reload(desk, options.config);
      return true;
    });
  } catch (...) {
    desk.stop();
    archiving.join();
    throw;
  }
  desk.stop();
  archiving.join();
}

int run(const Options& options, int signals) {
  char message[TAVREN_MESSAGE_SIZE];
  if (tavren_setup_tmp_dir("tavrend", message) != 0) return refuse(message);
  int status = 0;
  try {
    work(options, read_config(options.config), signals);
    syslog(LOG_NOTICE, "ended");
  } catch (const std::exception& error) {
    status = refuse(error.what());
  }
  tavren_cleanup_tmp_dir();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  tavren_set_program_name("tavrend");
  const int signals = open_signals(); /* one that comes early is not lost, and ends nothing by itself */
  openlog("tavrend", 0, LOG_DAEMON);
  try {
    return run(options_from(argc, argv), signals);
  } catch (const std::exception& error) {
    /* Memory may run out also around the work. */
    return refuse(error.what());
  }
}
