/*
 * The main function of the tests that need nothing around them.
 */
#include "support/run_all_tests.h"

int main(int argc, char** argv) { return run_all_tests(argc, argv); }
