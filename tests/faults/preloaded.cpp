#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include "faults/faults.h"

/*
 * For LD_PRELOAD: what fails in this program says the test that shares the file $FAULTS with it. The programs that it
 * starts have nothing to do with it.
 */
namespace {

__attribute__((constructor)) void use_what_is_shared() {
  const char* const path = getenv("FAULTS");
  if (path == nullptr) return;
  const int fd = open(path, O_RDWR | O_CLOEXEC);
  void* const shared = mmap(nullptr, sizeof(faults::Control), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  if (shared == MAP_FAILED) abort();
  faults::use(static_cast<faults::Control*>(shared));
  unsetenv("LD_PRELOAD");
  unsetenv("FAULTS");
}

}  // namespace
