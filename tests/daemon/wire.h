#ifndef TESTS_DAEMON_WIRE_H
#define TESTS_DAEMON_WIRE_H

#include <arpa/inet.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <optional>
#include <string>

#include "tavren_rpc.h"

/* What travels, written out by hand, and the two kinds of stream that it travels through. */
namespace wire {

/* A unit of four bytes, the most significant one first. */
inline std::string unit(uint32_t value) {
  std::string bytes;
  for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(value >> shift);
  return bytes;
}

/* A string: its length, its bytes, zeros up to a whole unit. */
inline std::string text(const std::string& s) {
  return unit(static_cast<uint32_t>(s.size())) + s + std::string((4 - s.size() % 4) % 4, '\0');
}

/* Returns what filter makes of object in a stream in memory with room for that many bytes; nothing when it fails. */
template <class Object>
std::optional<std::string> encoded(bool_t (*filter)(XDR*, Object*), const Object& object, size_t room = 1 << 16) {
  std::string bytes(room, 'x');
  XDR xdrs;
  xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(room), XDR_ENCODE);
  const bool done = filter(&xdrs, const_cast<Object*>(&object)) != FALSE;
  bytes.resize(xdr_getpos(&xdrs));
  xdr_destroy(&xdrs);
  return done ? std::optional(bytes) : std::nullopt;
}

/*
 * Decodes object from exactly these bytes. Returns whether it succeeded and took all of them. What was allocated is the
 * caller's in either case.
 */
template <class Object>
bool decode(bool_t (*filter)(XDR*, Object*), std::string bytes, Object* object) {
  XDR xdrs;
  xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
  const bool decoded = filter(&xdrs, object) != FALSE && xdr_getpos(&xdrs) == bytes.size();
  xdr_destroy(&xdrs);
  return decoded;
}

/* Releases what decoding allocated. */
template <class Object>
void release(bool_t (*filter)(XDR*, Object*), Object* object) {
  XDR xdrs;
  memset(&xdrs, 0, sizeof xdrs);
  xdrs.x_op = XDR_FREE;
  filter(&xdrs, object);
}

/* The two ends of a record stream: what was written to it, and what is still to be read. */
struct Pipe {
  std::string bytes;
  size_t position = 0;
  size_t piece = SIZE_MAX; /* bytes that one read gets at the most */
};

inline int write_to(void* pipe, void* data, int length) {
  static_cast<Pipe*>(pipe)->bytes.append(static_cast<char*>(data), static_cast<size_t>(length));
  return length;
}

inline int read_from(void* handle, void* data, int length) {
  auto* pipe = static_cast<Pipe*>(handle);
  const size_t size = std::min({static_cast<size_t>(length), pipe->bytes.size() - pipe->position, pipe->piece});
  if (size == 0) return -1;
  memcpy(data, pipe->bytes.data() + pipe->position, size);
  pipe->position += size;
  return static_cast<int>(size);
}

/* Returns the bytes of a record without the headers of its fragments. */
inline std::string without_headers(const std::string& record) {
  std::string bytes;
  for (size_t p = 0; p < record.size();) {
    uint32_t header = 0;
    memcpy(&header, record.data() + p, sizeof header);
    const size_t length = ntohl(header) & 0x7FFFFFFF;
    bytes += record.substr(p + 4, length);
    p += 4 + length;
  }
  return bytes;
}

/* Returns bytes as a record of fragments of at most that many bytes. */
inline std::string with_headers(const std::string& bytes, size_t length) {
  std::string record;
  for (size_t p = 0; p < bytes.size(); p += length) {
    const std::string fragment = bytes.substr(p, length);
    const bool last = p + length >= bytes.size();
    record += unit(static_cast<uint32_t>(fragment.size()) | (last ? 0x80000000U : 0)) + fragment;
  }
  return record;
}

/* The same as encoded, through a record stream with a buffer of that size. */
template <class Object>
std::optional<std::string> encoded_in_records(bool_t (*filter)(XDR*, Object*), const Object& object,
                                              u_int buffer_size) {
  Pipe pipe;
  XDR xdrs;
  xdrrec_create(&xdrs, buffer_size, buffer_size, &pipe, read_from, write_to);
  xdrs.x_op = XDR_ENCODE;
  const bool done = filter(&xdrs, const_cast<Object*>(&object)) != FALSE && xdrrec_endofrecord(&xdrs, TRUE) != FALSE;
  xdr_destroy(&xdrs);
  return done ? std::optional(without_headers(pipe.bytes)) : std::nullopt;
}

/* The same as decode, from a record of fragments of that length, of which one read gets piece bytes at the most. */
template <class Object>
bool decode_records(bool_t (*filter)(XDR*, Object*), const std::string& bytes, size_t fragment, size_t piece,
                    Object* object) {
  Pipe pipe{with_headers(bytes, fragment), 0, piece};
  XDR xdrs;
  xdrrec_create(&xdrs, 100, 100, &pipe, read_from, write_to);
  xdrs.x_op = XDR_DECODE;
  const bool decoded =
      xdrrec_skiprecord(&xdrs) != FALSE && filter(&xdrs, object) != FALSE && pipe.position == pipe.bytes.size();
  xdr_destroy(&xdrs);
  return decoded;
}

}  // namespace wire

#endif
