#ifndef TESTS_SUPPORT_EARLY_ENDS_H
#define TESTS_SUPPORT_EARLY_ENDS_H

/*
 * While it lives, every third read of a terminal says that the output has ended although it has not: what a master says
 * when the kernel has looked for bytes just before the child wrote its last ones. The read after that one is real.
 */
class EarlyEnds {
 public:
  /* error_number is what such a read fails with; 0 makes it return 0. */
  explicit EarlyEnds(int error_number);
  ~EarlyEnds();
  EarlyEnds(const EarlyEnds&) = delete;
  EarlyEnds& operator=(const EarlyEnds&) = delete;

  /* How many there were, so that a test can tell that there were some. */
  static int count();
};

#endif
