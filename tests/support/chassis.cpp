#include "support/chassis.h"

#include <stdlib.h>
#include <string.h>

#include "hodra.h"

namespace {

constexpr size_t record_size = 1024;
constexpr size_t id_offset = 40;

std::string id = "CHASSIS-7";
std::string failing_operation;
int failing_with = 0;

int result_of(const char* operation) { return failing_operation == operation ? failing_with : 0; }

}  // namespace

void chassis::set_id(const std::string& new_id) { id = new_id; }

void chassis::fail(const std::string& operation, int error) {
  failing_operation = operation;
  failing_with = error;
}

int open_conf_db(int) { return result_of("open_conf_db"); }
int close_conf_db(int) { return result_of("close_conf_db"); }
int hodra_lock(int) { return result_of("hodra_lock"); }
int hodra_unlock(int) { return result_of("hodra_unlock"); }

int hodra_get(int, const char*, void** data, size_t* length, int) {
  if (const int error = result_of("hodra_get")) return error;
  char* record = static_cast<char*>(calloc(1, record_size));
  memcpy(record + id_offset, id.data(), id.size());
  *data = record;
  *length = record_size;
  return 0;
}
