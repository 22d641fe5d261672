#ifndef TAVREND_PLAN_BY_INODE_H
#define TAVREND_PLAN_BY_INODE_H

#include "plan/log_file.h"

/* The order in which files are looked up among tens of thousands: anything that has an ArchivedFile called file. */
struct ByInode {
  template <class Known>
  bool operator()(const Known& a, const Inode& b) const {
    return inode_of(a.file.identity) < b;
  }
  template <class Known>
  bool operator()(const Inode& a, const Known& b) const {
    return a < inode_of(b.file.identity);
  }
  template <class Known>
  bool operator()(const Known& a, const Known& b) const {
    return inode_of(a.file.identity) < inode_of(b.file.identity);
  }
};

#endif
