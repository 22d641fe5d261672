#include "tavren_host_util.h"

#include <exception>
#include <memory>
#include <new>
#include <string>

#include "TavrenError.h"
#include "TavrenExceptions.h"
#include "TavrenHost.h"
#include "core/TavrenError_message.h"
#include "core/catalogue.h"
#include "tavren_cmem.h"

struct tavren_hp_t {
  TavrenHost* host = nullptr;
};

namespace {

/* Runs step; an archive host's failure becomes -1 and a message, any other exception passes with *message as it was. */
template <class Step>
int report_host_failure(char** message, Step step) {
  try {
    step();
    *message = nullptr;
    return 0;
  } catch (const TavrenError& error) {
    *message = message_of(error);
    return -1;
  }
}

/* Runs step; besides, exhausted memory becomes -1 without a message. */
template <class Step>
int report_failure(char** message, Step step) {
  *message = nullptr;
  try {
    return report_host_failure(message, step);
  } catch (const std::bad_alloc&) {
    return -1;
  }
}

/* Returns text in the form of an error's only line. */
char* message_of(const char* text) { return tavren_strdup((std::string("  - ") + text + "\n").c_str()); }

/* Returns what the exception that is being handled says; any but TavrenError says little by itself. */
char* message_of_current_exception() {
  try {
    throw;
  } catch (const TavrenError& error) {
    return message_of(error);
  } catch (const TavrenTimeout&) {
    return message_of(translate("The archive host does not answer"));
  } catch (const TavrenOperationCancelled&) {
    return message_of(translate("The operation was cancelled"));
  } catch (const std::bad_alloc&) {
    return message_of(translate("Out of memory"));
  } catch (const std::exception& error) {
    return message_of(error.what());
  }
}

/* Runs step; whatever it throws becomes -1 and a message, or none when there is no memory for one either. */
template <class Step>
int report_everything(char** message, Step step) {
  *message = nullptr;
  try {
    try {
      step();
      return 0;
    } catch (...) {
      *message = message_of_current_exception();
    }
  } catch (const std::bad_alloc&) {
  }
  return -1;
}

}  // namespace

tavren_hp_t* tavren_hp_new(const tavren_settings_t* settings, char** message) {
  tavren_hp_t* handle = nullptr;
  report_everything(message, [&] {
    auto host = std::make_unique<TavrenHost>(false, false);
    host->set_settings(*settings);
    host->enable();
    handle = new tavren_hp_t;
    handle->host = host.release();
  });
  return handle;
}

int tavren_hp_open(tavren_hp_t* handle, char** message) {
  const int result = report_everything(message, [&] { handle->host->open_connection(); });
  if (result != 0) handle->host->close_connection();
  return result;
}

void tavren_hp_close(tavren_hp_t* handle) { handle->host->close_connection(); }

tavren_hp_t* tavren_hp_create(const tavren_settings_t* settings, char** message) {
  tavren_hp_t* handle = nullptr;
  const int result = report_failure(message, [&] {
    /* Deliberately not released when a later step fails: the child of the attempt lives on in the host object. */
    handle = new tavren_hp_t;
    handle->host = new TavrenHost(false, false);
    handle->host->set_settings(*settings);
    handle->host->enable();
    handle->host->open_connection();
  });
  return result == 0 ? handle : nullptr;
}

void tavren_hp_destroy(tavren_hp_t* handle) {
  delete handle->host;
  delete handle;
}

int tavren_hp_start_send_file(tavren_hp_t* handle, const char* file_name, uint32_t size, uint32_t mode,
                              char** message) {
  return report_failure(message, [&] { handle->host->start_send_file(file_name, size, mode); });
}

int tavren_hp_continue_send_file(tavren_hp_t* handle, const char* data, uint32_t length, char** message) {
  return report_failure(message, [&] { handle->host->continue_send_file(data, length); });
}

int tavren_hp_end_send_file(tavren_hp_t* handle, char** message) {
  return report_host_failure(message, [&] { handle->host->end_send_file(); });
}

int tavren_hp_start_send_stream(tavren_hp_t* handle, const char* file_name, char** message) {
  return report_failure(message, [&] { handle->host->start_send_stream(file_name); });
}

int tavren_hp_continue_send_stream(tavren_hp_t* handle, const char* data, uint32_t length, char** message) {
  return report_failure(message, [&] { handle->host->continue_send_stream(data, length); });
}

int tavren_hp_end_send_stream(tavren_hp_t* handle, char** message) {
  return report_host_failure(message, [&] { handle->host->end_send_stream(); });
}

int tavren_hp_try_to_create_file(tavren_hp_t* handle, const char* file_name, char** message) {
  return report_host_failure(message, [&] { handle->host->try_to_create_file(file_name); });
}

int tavren_hp_remove_file(tavren_hp_t* handle, const char* file_name, char** message) {
  return report_host_failure(message, [&] { handle->host->remove_file(file_name); });
}

void tavren_hp_kill_ssh(tavren_hp_t* handle) { handle->host->kill_ssh(); }
