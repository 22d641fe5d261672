/* The two exceptions that are not kinds of TavrenError. Both are empty and thrown by value. */
#ifndef TAVREN_EXCEPTIONS_H
#define TAVREN_EXCEPTIONS_H

#include "tavren_constants.h"

/* A deadline passed. What was waited for may still come: nothing that arrived is lost. */
class TAVREN_EXPORT TavrenTimeout {};

/*
 * The session or process was disabled, by whichever thread, or the session never enabled. No later wait on that process
 * succeeds; a session can be closed, enabled and opened again.
 */
class TAVREN_EXPORT TavrenOperationCancelled {};

#endif
