/* Everything that the library offers: the C functions, and in C++ the classes. */
#ifndef TAVREN_H
#define TAVREN_H

#include "tavren_api.h"
#include "tavren_assert.h"
#include "tavren_basic.h"
#include "tavren_cmem.h"
#include "tavren_constants.h"
#include "tavren_host_util.h"
#include "tavren_malloc.h"
#include "tavren_share.h"
#include "tavren_test_host.h"
#include "tavren_version.h"

#ifdef __cplusplus
#include "TavrenError.h"
#include "TavrenExceptions.h"
#include "TavrenHost.h"
#include "TavrenKeyDownloader.h"
#include "TavrenMutex.h"
#include "TavrenProcess.h"
#include "TavrenTunables.h"
#include "tavren_util.h"
#endif

#endif
