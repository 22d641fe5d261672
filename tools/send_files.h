/*
 * Sending files through one session after another.
 */
#ifndef TOOLS_SEND_FILES_H
#define TOOLS_SEND_FILES_H

#include <tavren.h>

/*
 * Sends all files, a list that NULL ends, with a progress bar on a terminal and a line for each otherwise. A session
 * whose transfer failed is replaced by a new one. Returns 0, or 1 when a file could not be sent.
 */
int send_files(const tavren_settings_t* settings, char** files);

#endif
