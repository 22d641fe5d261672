#include <gtest/gtest.h>
#include <string.h>

#include <map>
#include <ostream>
#include <streambuf>
#include <string>
#include <type_traits>

#include "core/tunables_fixture.h"

/*
 * The header shows the members, so programs that were built with it have their places compiled in. They are looked at
 * as bytes, because they are private.
 */
namespace {

using Tunable = TavrenTunables::Tunable;
using IntTunable = TavrenTunables::IntTunable;
using StringTunable = TavrenTunables::StringTunable;
using Map = std::map<std::string, Tunable*>;

/* Nothing has to be padded between members of these types. */
constexpr size_t alignment = alignof(void*);
static_assert(alignof(TavrenTunables) == alignment && alignof(Map) == alignment && alignof(TavrenMutex) == alignment &&
              alignof(Tunable) == alignment && alignof(IntTunable) == alignment && alignof(StringTunable) == alignment);

const char* bytes_of(const void* object) { return static_cast<const char*>(object); }

int32_t number_at(const char* place) {
  int32_t number = 0;
  memcpy(&number, place, sizeof number);
  return number;
}

const std::string& text_at(const char* place) { return *reinterpret_cast<const std::string*>(place); }

const Map& map_of(const TavrenTunables& registry) { return *reinterpret_cast<const Map*>(&registry); }

static_assert(std::is_abstract_v<Tunable> && std::has_virtual_destructor_v<Tunable>);

class TunablesLayout : public TunablesTest {};

TEST_F(TunablesLayout, BeginsWithTheMapOfNames) {
  std::string names;
  for (const auto& [name, tunable] : map_of(tunables)) {
    names += name + "=" + tunable->get_value(false) + " ";
  }
  EXPECT_EQ(names,
            "failure_retry_interval=300 log_dir_prefix= loopback_login=0 ssh_command_timeout=60 "
            "ssh_connect_timeout=120 ssh_du_command_timeout=120 ssh_shell_start_timeout=120 subprocess_log_size=0 ");
}

/* Looks whether a mutex is held whenever something is written. */
class LooksAtMutex : public std::streambuf {
 public:
  explicit LooksAtMutex(const TavrenMutex& looked_at) : mutex(looked_at) {}
  bool is_held = false;

 private:
  std::streamsize xsputn(const char*, std::streamsize n) override {
    is_held = mutex.have_lock();
    return n;
  }

  const TavrenMutex& mutex;
};

TEST_F(TunablesLayout, HasItsMutexBehindTheMap) {
  LooksAtMutex buffer(*reinterpret_cast<const TavrenMutex*>(bytes_of(&tunables) + sizeof(Map)));
  std::ostream out(&buffer);
  set("ssh_command_timeout", "30");
  tunables.print_tunables(out);
  EXPECT_TRUE(buffer.is_held);
}

TEST_F(TunablesLayout, HasTheTunablesBehindTheMutexNamesAscending) {
  const char* place = bytes_of(&tunables) + sizeof(Map) + sizeof(TavrenMutex);
  for (const char* name : tunable_names) {
    EXPECT_EQ(bytes_of(map_of(tunables).at(name)) - bytes_of(&tunables), place - bytes_of(&tunables)) << name;
    place += std::string(name) == "log_dir_prefix" ? sizeof(StringTunable) : sizeof(IntTunable);
  }
  EXPECT_EQ(bytes_of(&tunables) + sizeof(TavrenTunables), place);
}

TEST_F(TunablesLayout, OfATunableIsItsTableOfOperationsAndItsName) {
  const Tunable* tunable = map_of(tunables).at("log_dir_prefix");
  const char* name = nullptr;
  memcpy(&name, bytes_of(tunable) + sizeof(void*), sizeof name);
  EXPECT_STREQ(name, "log_dir_prefix");
  EXPECT_EQ(sizeof(Tunable), 2 * sizeof(void*));
}

TEST_F(TunablesLayout, OfANumberAndOfATextIsItsValueAndThenItsDefault) {
  set("ssh_command_timeout", "30");
  set("log_dir_prefix", "/logs");
  const char* number = bytes_of(map_of(tunables).at("ssh_command_timeout")) + sizeof(Tunable);
  EXPECT_EQ(number_at(number), 30);
  EXPECT_EQ(number_at(number + sizeof(int32_t)), 60);
  const char* text = bytes_of(map_of(tunables).at("log_dir_prefix")) + sizeof(Tunable);
  EXPECT_EQ(text_at(text), "/logs");
  EXPECT_EQ(text_at(text + sizeof(std::string)), "");
}

}  // namespace
