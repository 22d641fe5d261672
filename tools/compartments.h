/*
 * What the daemon's compartments are called.
 */
#ifndef TOOLS_COMPARTMENTS_H
#define TOOLS_COMPARTMENTS_H

#include <tavren.h>

static const char* const compartment_names[TAVREN_COMPARTMENTS] = {"audit", "logs"};

#endif
