#include <gtest/gtest.h>

#include "lab/lab.h"
#include "support/files.h"

namespace {

class Readme : public LabTest {};

TEST_F(Readme, ProgramIsBuiltWithNothingButTheLibraryAndArchivesItsFile) {
  lab::run("sed -n '/^```c$/,/^```$/{/^```/d;p}' " README_FILE
           " | sed -e s#archive.example#localhost# -e s#/var/archive#/home/archiver/archive# -e s#logger#archiver#"
           " -e \"s#\\\"secret\\\"#\\\"$LAB_PASSWORD\\\"#\" >$LAB/diary.c");
  lab::run("cc -std=c11 -Wall -Wextra -Werror -I" INCLUDE_DIR " $LAB/diary.c -L" LIBRARY_DIR " -Wl,-rpath," LIBRARY_DIR
           " -ltavren -o $LAB/diary");
  lab::run("$LAB/diary");
  EXPECT_EQ(read_file(lab::archived("today.log")), "Nothing happened today.\n");
}

}  // namespace
