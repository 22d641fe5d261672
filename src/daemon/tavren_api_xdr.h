#ifndef SRC_DAEMON_TAVREN_API_XDR_H
#define SRC_DAEMON_TAVREN_API_XDR_H

#include "tavren_rpc.h"

/* An argument or a result that a procedure does not have. */
struct Nothing {};

/*
 * How each type travels. The exported filters are only names for these: a program may bring filters of the same names,
 * from a generator, and they would stand in the place of the library's own.
 */
bool_t xdr_object(XDR* xdrs, Nothing* object);
bool_t xdr_object(XDR* xdrs, int* object);
bool_t xdr_object(XDR* xdrs, signed char* object); /* a byte, as a unit of its own */
bool_t xdr_object(XDR* xdrs, char** object);       /* a string of any length: xdr_wrapstring stops at 9,000 bytes */
bool_t xdr_object(XDR* xdrs, tavren_state_t* object);
bool_t xdr_object(XDR* xdrs, tavren_connection_status_t* object);
bool_t xdr_object(XDR* xdrs, tavren_compartment_t* object);
bool_t xdr_object(XDR* xdrs, tavren_settings_t* object);
bool_t xdr_object(XDR* xdrs, tavren_config_t* object);
bool_t xdr_object(XDR* xdrs, tavren_compartment_status_t* object);
bool_t xdr_object(XDR* xdrs, tavren_status_t* object);
bool_t xdr_object(XDR* xdrs, tavren_bytes_t* object);
bool_t xdr_object(XDR* xdrs, tavren_rpc_set_config_1_argument* object);
bool_t xdr_object(XDR* xdrs, tavren_rpc_set_tunable_1_argument* object);
bool_t xdr_object(XDR* xdrs, tavren_rpc_set_remote_command_1_argument* object);
bool_t xdr_object(XDR* xdrs, tavren_rpc_set_interval_1_argument* object);

/* Returns the filter of a type in the form in which the RPC library takes all of them. */
template <class Object>
xdrproc_t filter_of() {
  bool_t (*const filter)(XDR*, Object*) = xdr_object;
  return reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(filter));
}

#endif
