#ifndef SRC_DAEMON_RPC_H
#define SRC_DAEMON_RPC_H

#include "tavren_rpc.h"

/*
 * A string of any length, as an XDR filter of its own. The RPC library's xdr_wrapstring would be one, but stops at
 * 9,000 bytes, and tables are longer.
 */
bool_t xdr_unbounded_string(XDR* xdrs, char** object);

/* Returns filter in the form in which the RPC library takes all of them. */
template <class Object>
xdrproc_t as_xdrproc(bool_t (*filter)(XDR*, Object*)) {
  return reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(filter));
}

/* Returns the number under which the daemon is registered, looked up anew. */
int tavren_rpc_program_number();

#endif
