#include "text.h"

#include <stdlib.h>

void print_label(FILE* out, const char* label, int width) {
  const size_t characters = mbstowcs(NULL, label, 0); /* as many as columns, in labels */
  const int blanks = characters < (size_t)width ? width - (int)characters : 0;
  fprintf(out, "%s%*s ", label, blanks, "");
}
