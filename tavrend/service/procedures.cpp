#include "service/procedures.h"

#include <errno.h>
#include <string.h>
#include <syslog.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "TavrenHost.h"
#include "TavrenTunables.h"
#include "plan/schedule.h"
#include "service/as_filter.h"
#include "service/caller.h"
#include "sources/local_files.h"
#include "tavren_rpc.h"
#include "tavren_util.h"

namespace {

constexpr u_int longest_text = 65536; /* bytes of a request's string */
constexpr int interval_column = 46;
constexpr char audit_section[] = "audit";

constexpr int audit_archived = 1;
constexpr int audit_waiting = 0;
constexpr int audit_unknown = -2; /* -1 and -3 are the client's own failures */

bool_t xdr_text(XDR* xdrs, char** text) { return xdr_string(xdrs, text, longest_text); }
bool_t xdr_answer(XDR* xdrs, char** text) { return xdr_string(xdrs, text, ~u_int{0}); }

/* A request's argument, as it was decoded, released at the end. */
template <class Object>
class Argument {
 public:
  Argument(SVCXPRT* from, bool_t (*with)(XDR*, Object*)) : transport(from), filter(with) {
    good = svc_getargs(transport, as_filter(filter), reinterpret_cast<char*>(&object)) != FALSE;
    if (!good) svcerr_decode(transport);
  }
  ~Argument() { svc_freeargs(transport, as_filter(filter), reinterpret_cast<char*>(&object)); }
  Argument(const Argument&) = delete;
  Argument& operator=(const Argument&) = delete;

  Object object{};
  bool good;

 private:
  SVCXPRT* transport;
  bool_t (*filter)(XDR*, Object*);
};

template <class Object>
void reply(SVCXPRT* transport, bool_t (*filter)(XDR*, Object*), Object* answer) {
  if (svc_sendreply(transport, as_filter(filter), reinterpret_cast<char*>(answer)) == FALSE)
    svcerr_systemerr(transport);
}

void reply_nothing(SVCXPRT* transport) { reply<void>(transport, xdr_nothing, nullptr); }

void reply_text(SVCXPRT* transport, const std::string& text) {
  char* answer = const_cast<char*>(text.c_str());
  reply(transport, xdr_answer, &answer);
}

void reply_number(SVCXPRT* transport, int number) { reply(transport, xdr_int, &number); }

bool has_newline(const char* text) { return strchr(text, '\n') != nullptr; }

constexpr char no_newline[] = "A newline is not allowed here.";

std::string changed_tunables() {
  std::ostringstream out;
  TavrenTunables::instance().print_tunables(out);
  return out.str();
}

std::string commands() {
  std::ostringstream out;
  TavrenHost::print_cmds(out);
  return out.str();
}

/* Keeps text over a restart. Where that fails the change is taken back: a caller is told that it did not come about. */
void keep(Desk& desk, const std::string& kind, const std::string& text, const std::function<void()>& take_back) {
  try {
    desk.keep_text(kind, text);
  } catch (...) {
    take_back();
    throw;
  }
}

/* The procedures: each has taken its arguments when it changes something. */

void get_state(Desk& desk, SVCXPRT* transport) {
  tavren_state_t state = desk.is_enabled() ? TAVREN_STATE_ENABLED : TAVREN_STATE_DISABLED;
  reply(transport, xdr_tavren_state_t, &state);
}

void set_state(Desk& desk, SVCXPRT* transport) {
  const Argument<int> state(transport, xdr_int); /* as it travels: any number may come */
  if (!state.good) return;
  desk.set_config(std::nullopt, state.object == TAVREN_STATE_ENABLED);
  reply_nothing(transport);
}

void get_config(Desk& desk, SVCXPRT* transport) {
  ArchiveConfig config = desk.config().value_or(ArchiveConfig());
  Settings& s = config.settings;
  tavren_config_t answer = {
      {s.host.data(), s.dir.data(), s.user.data(), s.password.data(), s.host_key.data(), s.fingerprint.data()},
      {config.space_limit[0], config.space_limit[1]}};
  reply(transport, xdr_tavren_config_t, &answer);
}

/* Returns why a configuration is refused, NULL when it is not. */
const char* refusal_of(const ArchiveConfig& config) {
  if (config.settings.host.empty()) return "no host";
  if (config.settings.user.empty()) return "no user";
  if (config.settings.dir.empty()) return "no directory";
  for (const int32_t limit : config.space_limit) {
    if (limit < -1) return "a limit below -1";
  }
  return nullptr;
}

void set_config(Desk& desk, SVCXPRT* transport) {
  const Argument<tavren_rpc_set_config_1_argument> argument(transport, xdr_tavren_rpc_set_config_1_argument);
  if (!argument.good) return;
  std::optional<ArchiveConfig> config;
  if (const tavren_config_t* given = argument.object.arg1) {
    const tavren_settings_t& s = given->settings;
    config = ArchiveConfig{{s.host, s.dir, s.user, s.password, s.host_key, s.fingerprint},
                           {given->space_limit[0], given->space_limit[1]}};
    if (const char* reason = refusal_of(*config)) {
      syslog(LOG_WARNING, "a configuration was refused: %s", reason);
      svcerr_systemerr(transport);
      return;
    }
  }
  desk.set_config(config, argument.object.arg2 != FALSE);
  reply_nothing(transport);
}

void get_status(Desk& desk, SVCXPRT* transport) {
  const Status status = desk.status();
  tavren_status_t answer{};
  answer.connection_time = static_cast<int32_t>(status.connection_time);
  answer.connection_status = status.connection;
  for (int i = 0; i < TAVREN_COMPARTMENTS; ++i) {
    const CompartmentStatus& compartment = status.compartments[i];
    answer.compartment_status[i] = {compartment.used_mb, compartment.waiting, compartment.archived};
  }
  reply(transport, xdr_tavren_status_t, &answer);
}

void get_errors(Desk& desk, SVCXPRT* transport) {
  const std::vector<std::string> errors = desk.errors();
  std::string text = std::to_string(errors.size()) + '\0';
  for (const std::string& error : errors) text += error;
  tavren_bytes_t answer{};
  answer.data.data_len = static_cast<uint32_t>(text.size());
  answer.data.data_val = text.data();
  reply(transport, xdr_tavren_bytes_t, &answer);
}

void clear_stored_data(Desk& desk, SVCXPRT* transport) {
  desk.clear_errors();
  reply_text(transport, "");
}

void get_tunables(Desk&, SVCXPRT* transport) { reply_text(transport, changed_tunables()); }

void set_tunable(Desk& desk, SVCXPRT* transport) {
  const Argument<tavren_rpc_set_tunable_1_argument> argument(transport, xdr_tavren_rpc_set_tunable_1_argument);
  if (!argument.good) return;
  std::string refusal = has_newline(argument.object.arg1) || has_newline(argument.object.arg2) ? no_newline : "";
  TavrenTunables& tunables = TavrenTunables::instance();
  const std::string before = changed_tunables();
  if (refusal.empty()) tunables.set_tunable(argument.object.arg1, argument.object.arg2, refusal);
  if (refusal.empty()) {
    keep(desk, "tunables", changed_tunables(), [&] {
      tunables.set_tunable(argument.object.arg1, "default", refusal); /* which before does not name */
      tunables.set_tunables(before);
    });
  }
  reply_text(transport, refusal);
}

void get_tunable_table(Desk&, SVCXPRT* transport) {
  std::ostringstream out;
  TavrenTunables::instance().print_tunable_table(out);
  reply_text(transport, out.str());
}

void get_remote_commands(Desk&, SVCXPRT* transport) { reply_text(transport, commands()); }

void set_remote_command(Desk& desk, SVCXPRT* transport) {
  const Argument<tavren_rpc_set_remote_command_1_argument> argument(transport,
                                                                    xdr_tavren_rpc_set_remote_command_1_argument);
  if (!argument.good) return;
  std::string refusal = has_newline(argument.object.arg1) || has_newline(argument.object.arg2) ? no_newline : "";
  const std::string before = commands();
  if (refusal.empty()) TavrenHost::set_cmd(argument.object.arg1, argument.object.arg2, refusal);
  if (refusal.empty()) keep(desk, "commands", commands(), [&] { TavrenHost::set_cmds(before); });
  reply_text(transport, refusal);
}

void get_remote_command_table(Desk&, SVCXPRT* transport) {
  std::ostringstream out;
  TavrenHost::print_cmd_table(out);
  reply_text(transport, out.str());
}

void set_interval(Desk& desk, SVCXPRT* transport) {
  const Argument<tavren_rpc_set_interval_1_argument> argument(transport, xdr_tavren_rpc_set_interval_1_argument);
  if (!argument.good) return;
  const std::string task = argument.object.arg1;
  const std::string value = argument.object.arg2;
  std::optional<int32_t> seconds;
  if (value != "default") seconds = parse_interval(value);
  std::string refusal;
  if (seconds == 0) {
    refusal = "Invalid interval: \"" + value + "\".";
  } else if (!desk.set_interval(task, seconds)) {
    refusal = "Unknown task: \"" + task + "\".";
  }
  reply_text(transport, refusal);
}

void get_interval_table(Desk& desk, SVCXPRT* transport) {
  std::string table =
      tavren_pad_end("TASK", interval_column) + "INTERVAL\n" + tavren_pad_end("----", interval_column) + "--------\n";
  for (const auto& [task, interval] : desk.intervals()) {
    table += tavren_pad_end(task, interval_column) + std::to_string(interval.seconds);
    if (interval.seconds != interval.usual_seconds)
      table += " (default: " + std::to_string(interval.usual_seconds) + ")";
    table += '\n';
  }
  reply_text(transport, table);
}

void get_archive_host(Desk& desk, SVCXPRT* transport) {
  reply_text(transport, desk.config().value_or(ArchiveConfig()).settings.host);
}

void get_archive_directory(Desk& desk, SVCXPRT* transport) {
  reply_text(transport, desk.config().value_or(ArchiveConfig()).settings.dir);
}

void run_task(Desk& desk, SVCXPRT* transport) {
  const Argument<char*> task(transport, xdr_text);
  if (!task.good) return;
  if (!desk.run_task(task.object)) syslog(LOG_WARNING, "there is no task \"%s\"", task.object);
  reply_nothing(transport);
}

/* Whether file was archived in the section of audit files. */
bool is_audit_archived(Desk& desk, const LogFile& file) {
  const auto archived = desk.archived_files(audit_section);
  return std::any_of(archived.begin(), archived.end(), [&file](const ArchivedFile& a) { return is_archived(a, file); });
}

/* What became of the file that is at path now. The others of the section are not looked for. */
int audit_answer(Desk& desk, const std::string& path) {
  const std::vector<Section> sections = desk.sections();
  const auto section =
      std::find_if(sections.begin(), sections.end(), [](const Section& s) { return s.name == audit_section; });
  if (section == sections.end() || section->files.empty() || !matches(section->files, path)) return audit_unknown;
  try {
    const auto file = look_at(log_dir_prefix(), path);
    if (!file) return audit_unknown;
    return is_audit_archived(desk, *file) ? audit_archived : audit_waiting;
  } catch (const UnreadableFile& file) {
    return file.error == ENAMETOOLONG ? audit_unknown : audit_waiting; /* no file can have such a name */
  }
}

void audit_file_was_archived(Desk& desk, SVCXPRT* transport) {
  const Argument<char*> path(transport, xdr_text);
  if (!path.good) return;
  reply_number(transport, audit_answer(desk, path.object));
}

void is_tavrend_sleeping(Desk& desk, SVCXPRT* transport) { reply_number(transport, desk.is_sleeping() ? 1 : 0); }

void null_procedure(Desk&, SVCXPRT* transport) { reply_nothing(transport); }

struct Procedure {
  rpcproc_t number;
  bool for_everybody;
  void (*answer)(Desk& desk, SVCXPRT* transport);
};

constexpr Procedure procedures[] = {
    {TAVREN_RPC_NULL, true, null_procedure},
    {TAVREN_RPC_GET_STATE, true, get_state},
    {TAVREN_RPC_SET_STATE, false, set_state},
    {TAVREN_RPC_GET_CONFIG, false, get_config},
    {TAVREN_RPC_SET_CONFIG, false, set_config},
    {TAVREN_RPC_GET_STATUS, true, get_status},
    {TAVREN_RPC_GET_ERRORS, false, get_errors},
    {TAVREN_RPC_GET_TUNABLES, false, get_tunables},
    {TAVREN_RPC_GET_REMOTE_COMMANDS, false, get_remote_commands},
    {TAVREN_RPC_GET_ARCHIVE_HOST, true, get_archive_host},
    {TAVREN_RPC_GET_ARCHIVE_DIRECTORY, true, get_archive_directory},
    {TAVREN_RPC_RUN_TASK, false, run_task},
    {TAVREN_RPC_AUDIT_FILE_WAS_ARCHIVED, false, audit_file_was_archived},
    {TAVREN_RPC_CLEAR_STORED_DATA, false, clear_stored_data},
    {TAVREN_RPC_SET_TUNABLE, false, set_tunable},
    {TAVREN_RPC_GET_TUNABLE_TABLE, false, get_tunable_table},
    {TAVREN_RPC_SET_REMOTE_COMMAND, false, set_remote_command},
    {TAVREN_RPC_GET_REMOTE_COMMAND_TABLE, false, get_remote_command_table},
    {TAVREN_RPC_SET_INTERVAL, false, set_interval},
    {TAVREN_RPC_GET_INTERVAL_TABLE, false, get_interval_table},
    {TAVREN_RPC_IS_TAVREND_SLEEPING, true, is_tavrend_sleeping},
};

}  // namespace

void answer_request(Desk& desk, svc_req* request, SVCXPRT* transport) {
  const auto procedure = std::find_if(std::begin(procedures), std::end(procedures),
                                      [request](const Procedure& p) { return p.number == request->rq_proc; });
  if (procedure == std::end(procedures)) {
    svcerr_noproc(transport);
  } else if (!procedure->for_everybody && caller_of(transport->xp_fd) != uid_t{0}) {
    svcerr_weakauth(transport);
  } else {
    procedure->answer(desk, transport);
  }
}

void load_kept_texts(Desk& desk) {
  TavrenTunables::instance().set_tunables(desk.kept_text("tunables"));
  const TavrenHost fills_the_table(false, false);
  TavrenHost::set_cmds(desk.kept_text("commands"));
}
