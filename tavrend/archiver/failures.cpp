#include "archiver/failures.h"

#include <errno.h>

#include "tavren_util.h"

TavrenError error_of(const UnreadableFile& file) {
  return TavrenError(file.was_open ? TAVREN_E_FILE_READ : TAVREN_E_FILE_OPEN, file.path,
                     tavren_int_to_string(file.error));
}

TavrenError error_of(const FileChanged& file) {
  return TavrenError(TAVREN_E_FILE_READ, file.what(), tavren_int_to_string(ESTALE));
}

TavrenError error_of(const NoRoom& item) {
  TavrenError error(TAVREN_E_CREATE_REMOTE_FILE, item.what(), "");
  error.add_line(TAVREN_E_SYSCALL, "limit", tavren_int_to_string(EFBIG));
  return error;
}

TavrenError error_of(const std::system_error& failure) {
  return TavrenError(TAVREN_E_SYSCALL, failure.what(), tavren_int_to_string(failure.code().value()));
}

TavrenError error_of(const std::exception& failure) {
  return TavrenError(TAVREN_E_SYSCALL, failure.what(), tavren_int_to_string(EIO));
}

TavrenError error_of_lost(const std::string& path, int64_t first, int64_t end) {
  const std::string range = " (bytes " + std::to_string(first) + " to " + std::to_string(end) + ")";
  return TavrenError(TAVREN_E_FILE_READ, path + range, tavren_int_to_string(ENODATA));
}

bool is_about_one_item(const TavrenError& error) {
  return error.get_ecode() == TAVREN_E_COMMAND_FAILED || error.get_ecode() == TAVREN_E_CREATE_REMOTE_FILE ||
         error.get_ecode() == TAVREN_E_INCORRECT_OUTPUT;
}
