#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>

#include "hodra.h"
#include "tavren_assert.h"
#include "tavren_basic.h"

/*
 * Which machine this is, from the platform's configuration database. The layouts of its records belong to the
 * platform; only the fields that are read here are known.
 */
namespace {

struct Record {
  int database;
  const char* name;
  size_t size;           /* bytes, of the platform's own record type */
  const char* assertion; /* what a shorter record breaks */
};

constexpr Record setup_system_id_info = {1, "setup_system_id_info", 1024, "len >= sizeof (setup_system_id_info_t)"};
constexpr Record local_kvf_info = {3, "local_kvf_info", 280, "len >= sizeof (local_kvf_info_t)"};
constexpr Record gen_system_info = {0, "gen_system_info", 1408, "len >= sizeof (gen_system_info_t)"};

constexpr size_t chassis_id_offset = 40;
constexpr size_t chassis_id_length = 16;
constexpr size_t sp_number_offset = 20;
constexpr size_t max_regular_domains_offset = 36;
constexpr size_t max_cmus_offset = 0;

constexpr int default_max_regular_domains = 24;
constexpr int default_max_cmus = 16;

constexpr int not_read = -1;

/* What has been read. Threads that come first together store the same. */
char chassis_id[chassis_id_length + 1];
std::atomic<int> sp_number{not_read};
std::atomic<int> max_regular_domains{not_read};
std::atomic<int> max_cmus{not_read};

/* Reads a record into *data, which the caller frees. Returns 0, or the result of the step named in *failed_call. */
int read_record(const Record& record, char** data, const char** failed_call) {
  int result = open_conf_db(record.database);
  if (result != 0) {
    *failed_call = "open_conf_db";
    return result;
  }
  result = hodra_lock(record.database);
  if (result != 0) {
    *failed_call = "hodra_lock";
    close_conf_db(record.database);
    return result;
  }
  void* copy = nullptr;
  size_t length = 0;
  result = hodra_get(record.database, record.name, &copy, &length, 0);
  if (result != 0) {
    *failed_call = "hodra_get";
    hodra_unlock(record.database);
    close_conf_db(record.database);
    return result;
  }
  result = hodra_unlock(record.database);
  close_conf_db(record.database);
  if (result != 0) {
    *failed_call = "hodra_unlock";
    free(copy);
    return result;
  }
  if (length < record.size) _tavren_assert(record.assertion, "tavren_basic", __LINE__);
  *data = static_cast<char*>(copy);
  return 0;
}

/* Fills cache, unless it is, with the field that decode reads from a record. Returns 0 or what read_record returns. */
template <class Decode>
int read_number(std::atomic<int>& cache, const Record& record, Decode decode, const char** failed_call) {
  if (cache != not_read) return 0;
  char* data = nullptr;
  const int result = read_record(record, &data, failed_call);
  if (result != 0) return result;
  cache = decode(data);
  free(data);
  return 0;
}

/* Reads an integer in the machine's own byte order. */
int32_t integer_at(const char* field) {
  int32_t number = 0;
  memcpy(&number, field, sizeof number);
  return number;
}

/* Returns the number at offset of the general record, or fallback when it cannot be read. */
int read_limit(std::atomic<int>& cache, size_t offset, int fallback) {
  const auto decode = [offset](const char* data) { return integer_at(data + offset); };
  const char* failed_call = nullptr;
  return read_number(cache, gen_system_info, decode, &failed_call) == 0 ? cache.load() : fallback;
}

/* The first byte comes last, because it tells other threads that the text is there. */
void remember_chassis_id(const char* text) {
  const size_t length = strnlen(text, chassis_id_length);
  for (size_t i = length; i-- > 0;) __atomic_store_n(&chassis_id[i], text[i], __ATOMIC_RELEASE);
}

}  // namespace

int tavren_get_chassis_id(const char** id, const char** failed_call) {
  if (__atomic_load_n(&chassis_id[0], __ATOMIC_ACQUIRE) == '\0') {
    char* data = nullptr;
    const int result = read_record(setup_system_id_info, &data, failed_call);
    if (result != 0) return result;
    const char* text = data + chassis_id_offset;
    /* A chassis that nobody has named still needs a name that can be used. */
    remember_chassis_id(*text == '\0' ? "none" : text);
    free(data);
  }
  *id = chassis_id;
  return 0;
}

int tavren_get_sp_number(int* number, const char** failed_call) {
  const auto decode = [](const char* data) { return int{static_cast<unsigned char>(data[sp_number_offset])}; };
  const int result = read_number(sp_number, local_kvf_info, decode, failed_call);
  if (result == 0) *number = sp_number;
  return result;
}

int tavren_get_max_regular_domains() {
  return read_limit(max_regular_domains, max_regular_domains_offset, default_max_regular_domains);
}

int tavren_get_max_cmus() { return read_limit(max_cmus, max_cmus_offset, default_max_cmus); }
