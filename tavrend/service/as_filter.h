#ifndef TAVREND_SERVICE_AS_FILTER_H
#define TAVREND_SERVICE_AS_FILTER_H

#include <rpc/rpc.h>

/* Returns an XDR filter as the RPC library takes it. */
template <class Object>
xdrproc_t as_filter(bool_t (*filter)(XDR*, Object*)) {
  return reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(filter));
}

/* The filter of what is not there. */
inline bool_t xdr_nothing(XDR*, void*) { return TRUE; }

#endif
