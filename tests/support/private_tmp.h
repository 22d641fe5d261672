#ifndef TESTS_SUPPORT_PRIVATE_TMP_H
#define TESTS_SUPPORT_PRIVATE_TMP_H

#include <gtest/gtest.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include "support/run_in_child.h"

/*
 * The daemon's report of a failed check lies under a fixed name in /tmp, so each report is made by a child with a
 * mount namespace, and a /tmp, of its own.
 */

/* Makes all mounts private. Returns false when it may not. The root of a chroot may be no mount point; bound to /proc,
   which is one, it becomes one. */
inline bool keep_mounts_private() {
  const auto make_private = [](const char* path) {
    return mount("none", path, nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  };
  return make_private("/") || (make_private("/proc") && mount("/", "/proc", nullptr, MS_BIND | MS_REC, nullptr) == 0 &&
                               make_private("/proc") && chroot("/proc") == 0);
}

/* Gives the calling process a /tmp of its own, empty. Returns false when it may not. */
inline bool enter_private_tmp() {
  return unshare(CLONE_NEWNS) == 0 && keep_mounts_private() && mount("none", "/tmp", "tmpfs", 0, "mode=1777") == 0;
}

class PrivateTmpTest : public testing::Test {
 protected:
  void SetUp() override {
    if (run_in_child([] { _exit(enter_private_tmp() ? 0 : 1); }).exited_with(0)) return;
    if (getenv("CI") != nullptr) FAIL() << "a private /tmp needs the rights of root";
    GTEST_SKIP() << "a private /tmp needs the rights of root";
  }
};

#endif
