#include "daemon/tavren_api_xdr.h"

#include <arpa/inet.h>
#include <stdlib.h>
#include <string.h>

#include <initializer_list>

/*
 * How each record of the daemon's protocol travels. What is encoded may lie in memory that must not be written.
 */
namespace {

constexpr u_int no_limit = 0xFFFFFFFF;

/* As bytes, because a daemon may send a value that the enumeration does not have, and then none must be made of it. */
template <class Enumeration>
bool_t xdr_enumeration(XDR* xdrs, Enumeration* object) {
  static_assert(sizeof(Enumeration) == sizeof(enum_t), "an enumeration is one unit");
  enum_t value = 0;
  memcpy(&value, object, sizeof value);
  if (xdr_enum(xdrs, &value) == FALSE) return FALSE;
  if (xdrs->x_op == XDR_DECODE) memcpy(object, &value, sizeof value);
  return TRUE;
}

template <class Setting>
bool_t xdr_two_strings(XDR* xdrs, Setting* object) {
  return xdr_object(xdrs, &object->arg1) != FALSE ? xdr_object(xdrs, &object->arg2) : FALSE;
}

/* Both limits go through the stream's own buffer at once where it has room for them, which is the common case. */
bool_t xdr_limits(XDR* xdrs, int32_t (&limits)[TAVREN_COMPARTMENTS]) {
  if (xdrs->x_op != XDR_FREE) {
    int32_t* const buffer = XDR_INLINE(xdrs, sizeof limits);
    if (buffer != nullptr) {
      for (int i = 0; i < TAVREN_COMPARTMENTS; ++i) {
        if (xdrs->x_op == XDR_ENCODE) {
          buffer[i] = static_cast<int32_t>(htonl(static_cast<uint32_t>(limits[i])));
        } else {
          limits[i] = static_cast<int32_t>(ntohl(static_cast<uint32_t>(buffer[i])));
        }
      }
      return TRUE;
    }
  }
  return xdr_vector(xdrs, reinterpret_cast<char*>(limits), TAVREN_COMPARTMENTS, sizeof limits[0], filter_of<int>());
}

}  // namespace

bool_t xdr_object(XDR*, Nothing*) { return TRUE; }

bool_t xdr_object(XDR* xdrs, int* object) { return xdr_int(xdrs, object); }

/* The RPC library's xdr_char would send a byte above 127 as a positive number where char has no sign. */
bool_t xdr_object(XDR* xdrs, signed char* object) {
  int value = *object;  // NOLINT(bugprone-signed-char-misuse): its sign travels with it
  if (xdr_int(xdrs, &value) == FALSE) return FALSE;
  if (xdrs->x_op == XDR_DECODE) *object = static_cast<signed char>(value);
  return TRUE;
}

bool_t xdr_object(XDR* xdrs, char** object) {
  /* xdr_string refuses it too, but not before the address sanitizer has measured it. */
  if (xdrs->x_op == XDR_ENCODE && *object == nullptr) return FALSE;
  return xdr_string(xdrs, object, no_limit);
}

bool_t xdr_object(XDR* xdrs, tavren_state_t* object) { return xdr_enumeration(xdrs, object); }

bool_t xdr_object(XDR* xdrs, tavren_connection_status_t* object) { return xdr_enumeration(xdrs, object); }

bool_t xdr_object(XDR* xdrs, tavren_compartment_t* object) { return xdr_enumeration(xdrs, object); }

bool_t xdr_object(XDR* xdrs, tavren_settings_t* object) {
  /* A password is wiped before its memory is given back, also that of a record that ended behind it. */
  if (xdrs->x_op == XDR_FREE && object->password != nullptr) {
    explicit_bzero(object->password, strlen(object->password));
  }
  for (char** string :
       {&object->host, &object->dir, &object->user, &object->password, &object->host_key, &object->fingerprint}) {
    if (xdr_object(xdrs, string) == FALSE) return FALSE;
  }
  return TRUE;
}

bool_t xdr_object(XDR* xdrs, tavren_config_t* object) {
  return xdr_object(xdrs, &object->settings) != FALSE ? xdr_limits(xdrs, object->space_limit) : FALSE;
}

bool_t xdr_object(XDR* xdrs, tavren_compartment_status_t* object) {
  for (int32_t* word : {&object->word1, &object->word2, &object->word3}) {
    if (xdr_object(xdrs, word) == FALSE) return FALSE;
  }
  return TRUE;
}

bool_t xdr_object(XDR* xdrs, tavren_status_t* object) {
  /* A long in the protocol's terms: four bytes on the wire, whatever its width is here. */
  long connection_time = object->connection_time;
  if (xdr_long(xdrs, &connection_time) == FALSE) return FALSE;
  if (xdrs->x_op == XDR_DECODE) object->connection_time = static_cast<int32_t>(connection_time);
  if (xdr_object(xdrs, &object->connection_status) == FALSE) return FALSE;
  return xdr_vector(xdrs, reinterpret_cast<char*>(object->compartment_status), TAVREN_COMPARTMENTS,
                    sizeof object->compartment_status[0], filter_of<tavren_compartment_status_t>());
}

bool_t xdr_object(XDR* xdrs, tavren_bytes_t* object) {
  if (xdr_object(xdrs, &object->code) == FALSE) return FALSE;
  if (xdrs->x_op == XDR_FREE) {
    /* The RPC library would visit each of the bytes, and a faulty daemon may have announced four thousand million. */
    free(object->data.data_val);
    object->data.data_val = nullptr;
    return TRUE;
  }
  /* One integer for each byte: deliberately not the packed form, which the daemon does not speak. */
  return xdr_array(xdrs, &object->data.data_val, &object->data.data_len, no_limit, sizeof(char),
                   filter_of<signed char>());
}

bool_t xdr_object(XDR* xdrs, tavren_rpc_set_config_1_argument* object) {
  if (xdr_pointer(xdrs, reinterpret_cast<char**>(&object->arg1), sizeof *object->arg1, filter_of<tavren_config_t>()) ==
      FALSE) {
    return FALSE;
  }
  return xdr_bool(xdrs, &object->arg2);
}

bool_t xdr_object(XDR* xdrs, tavren_rpc_set_tunable_1_argument* object) { return xdr_two_strings(xdrs, object); }

bool_t xdr_object(XDR* xdrs, tavren_rpc_set_remote_command_1_argument* object) { return xdr_two_strings(xdrs, object); }

bool_t xdr_object(XDR* xdrs, tavren_rpc_set_interval_1_argument* object) { return xdr_two_strings(xdrs, object); }

bool_t xdr_tavren_state_t(XDR* xdrs, tavren_state_t* object) { return xdr_object(xdrs, object); }
bool_t xdr_tavren_connection_status_t(XDR* xdrs, tavren_connection_status_t* object) {
  return xdr_object(xdrs, object);
}
bool_t xdr_tavren_compartment_t(XDR* xdrs, tavren_compartment_t* object) { return xdr_object(xdrs, object); }
bool_t xdr_tavren_settings_t(XDR* xdrs, tavren_settings_t* object) { return xdr_object(xdrs, object); }
bool_t xdr_tavren_config_t(XDR* xdrs, tavren_config_t* object) { return xdr_object(xdrs, object); }
bool_t xdr_tavren_compartment_status_t(XDR* xdrs, tavren_compartment_status_t* object) {
  return xdr_object(xdrs, object);
}
bool_t xdr_tavren_status_t(XDR* xdrs, tavren_status_t* object) { return xdr_object(xdrs, object); }
bool_t xdr_tavren_bytes_t(XDR* xdrs, tavren_bytes_t* object) { return xdr_object(xdrs, object); }
bool_t xdr_tavren_rpc_set_config_1_argument(XDR* xdrs, tavren_rpc_set_config_1_argument* object) {
  return xdr_object(xdrs, object);
}
bool_t xdr_tavren_rpc_set_tunable_1_argument(XDR* xdrs, tavren_rpc_set_tunable_1_argument* object) {
  return xdr_object(xdrs, object);
}
bool_t xdr_tavren_rpc_set_remote_command_1_argument(XDR* xdrs, tavren_rpc_set_remote_command_1_argument* object) {
  return xdr_object(xdrs, object);
}
bool_t xdr_tavren_rpc_set_interval_1_argument(XDR* xdrs, tavren_rpc_set_interval_1_argument* object) {
  return xdr_object(xdrs, object);
}
