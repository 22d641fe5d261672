#include "guarded_calls.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <sstream>
#include <string>

#include "text.h"

namespace {

constexpr char check_the_network[] =
    TOOLS_TEXT("Check the host's name, the network, and that a secure shell server runs there.");

constexpr char name_the_chassis[] = TOOLS_TEXT(
    "This machine does not know which chassis it is. Name it, as root: hodra-put 1 setup_system_id_info 1024 40=NAME "
    "(in libexec/tavren).");

/*
 * What a command that failed, or what it printed, says of the host. Each is a line of the text that is searched, and
 * none is translated: they are the host's words.
 */
struct Symptom {
  const char* text;
  const char* advice;
};

constexpr Symptom symptoms[] = {
    {"No space left on device", TOOLS_TEXT("The disk is full there: make space, or name another directory.")},
    {"quota exceeded", TOOLS_TEXT("The user's quota is used up there: raise it, or name another directory.")},
    {"\ncd ", TOOLS_TEXT("Make that directory on the host, or name another one.")},
    {"scp: not found", TOOLS_TEXT("Install scp on the host (Debian: openssh-client).")},
    {"scp: command not found", TOOLS_TEXT("Install scp on the host (Debian: openssh-client).")},
    {"scp: Permission denied", TOOLS_TEXT("Let the user run scp on the host.")},
    {"Permission denied", TOOLS_TEXT("Let the user write into that directory, or name another one.")},
    {"Read-only file system", TOOLS_TEXT("Nobody can write there: name another directory.")},
    {"", TOOLS_TEXT("Check that the directory exists, that the user may write there, that there is space left, and "
                    "that scp and the usual commands are installed on the host.")},
};

const char* advice_for_failed_command(const TavrenError& error) {
  std::string text;
  for (const TavrenError::error_line_t* line : error.lines) {
    for (int32_t i = 0; i < line->num_args; ++i) text += "\n" + line->args[i];
  }
  const auto shows = [&text](const Symptom& symptom) { return text.find(symptom.text) != std::string::npos; };
  const Symptom& symptom = *std::find_if(std::begin(symptoms), std::end(symptoms), shows);
  return translate(symptom.advice);
}

struct Advice {
  tavren_error_code_t code;
  const char* text;
};

constexpr Advice advices[] = {
    {TAVREN_E_CHASSIS_CONFLICT,
     TOOLS_TEXT(
         "Give this chassis a directory of its own. If the other chassis is gone, remove its .chassis file there.")},
    {TAVREN_E_LOGIN_DENIED, TOOLS_TEXT("Check the user's name and the password.")},
    {TAVREN_E_HOST_KEY_MISMATCH, TOOLS_TEXT("Find out why the host shows another key before you trust it.")},
    {TAVREN_E_CONNECT_TIMEOUT, check_the_network},
    {TAVREN_E_PROGRAM_EXITED, check_the_network},
    {TAVREN_E_SHELL_START_TIMEOUT, TOOLS_TEXT("Check the user's login shell and its start-up files on the host.")},
    {TAVREN_E_INCORRECT_OUTPUT,
     TOOLS_TEXT("Check that the commands on the host are the usual ones and print nothing more.")},
    {TAVREN_E_COMMAND_TIMEOUT, TOOLS_TEXT("The host answers too slowly. Try again when it is less busy.")},
    {TAVREN_E_SYSCALL, TOOLS_TEXT("This machine cannot do its part: see the error number.")},
};

/* Whether the platform's database, asked which chassis this is, did not know. */
bool is_about_chassis(const TavrenError::error_line_t& line) {
  constexpr char call[] = "create_chassis_file->";
  return line.code == TAVREN_E_SYSCALL && line.num_args > 0 && line.args[0].rfind(call, 0) == 0;
}

/* The lines go from the general to the particular: the first one that there is advice for tells most. */
const char* advice_for(const TavrenError& error) {
  for (const TavrenError::error_line_t* line : error.lines) {
    if (line->code == TAVREN_E_COMMAND_FAILED) return advice_for_failed_command(error);
    if (is_about_chassis(*line)) return translate(name_the_chassis);
    for (const Advice& advice : advices) {
      if (advice.code == line->code) return translate(advice.text);
    }
  }
  return nullptr;
}

/* Runs step. Returns 0, or -1 with what it threw as a text and an advice. */
template <class Step>
int guarded(char** message, const char** advice, Step step) {
  *message = nullptr;
  *advice = nullptr;
  try {
    return step();
  } catch (const TavrenError& error) {
    std::ostringstream text;
    error.print_body(text);
    *message = tavren_strdup(text.str().c_str());
    *advice = advice_for(error);
  } catch (const TavrenTimeout&) {
    *message = tavren_strdup(translate("  - The host does not answer\n"));
    *advice = translate(check_the_network);
  } catch (const TavrenOperationCancelled&) {
    *message = tavren_strdup(translate("  - Cancelled\n"));
  } catch (const std::exception& error) {
    *message = tavren_strdup((std::string("  - ") + error.what() + "\n").c_str());
  }
  return -1;
}

}  // namespace

int fetch_host_key(const char* host, char* key, char** message, const char** advice) {
  const int result = guarded(message, advice, [&] { return tavren_download_host_key(host, key, message); });
  if (result != 0 && *advice == nullptr) *advice = translate(check_the_network);
  return result;
}

int test_and_claim(const tavren_settings_t* settings, char** message, const char** advice) {
  return guarded(message, advice, [&] { return tavren_test_host(settings, message); });
}

int continue_send_file(tavren_hp_t* session, const char* data, uint32_t length, char** message) {
  const char* advice = nullptr;
  return guarded(message, &advice, [&] { return tavren_hp_continue_send_file(session, data, length, message); });
}
