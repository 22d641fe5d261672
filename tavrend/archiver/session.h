#ifndef TAVREND_ARCHIVER_SESSION_H
#define TAVREND_ARCHIVER_SESSION_H

#include <stdint.h>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "TavrenHost.h"
#include "archiver/desk.h"
#include "sources/local_files.h"

/* An item for which its compartment has no room, whatever is removed. */
struct NoRoom : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/*
 * One session with the archive host, from its opening to its end. Its functions throw TavrenError, TavrenTimeout and,
 * once the desk has cancelled the session, Cancelled.
 */
class Session {
 public:
  Session(Desk& desk, const Work& work);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void open();
  void claim();

  /* Returns the KiB that a compartment uses, measured once a session and after each removal. The desk hears of it, also
   * when it fails. */
  int64_t used_kib(int compartment);

  /*
   * Makes room for bytes in a compartment by removing its oldest items, but never the one at remote_path. Throws
   * NoRoom, also where of_file bytes would not fit, which are those of all items of the file as far as that is known:
   * they would make each other go.
   */
  void make_room(int compartment, int64_t bytes, int64_t of_file, const std::string& remote_path);

  /*
   * Sends bytes of file from first on to remote_path, in a directory that is made when it is not there. check is called
   * when all bytes have been read, and the last ones are not on their way: what it throws leaves the item shorter than
   * it is to be, and the session of no more use.
   */
  void send(const OpenFile& file, const std::string& path, int64_t first, int64_t bytes, const std::string& remote_path,
            int compartment, const std::function<void()>& check);

  /* Returns the bytes of an item, nothing where that is not there. */
  std::optional<int64_t> size_of(const std::string& remote_path);

  /* Removes an item; one that is not there is no failure. */
  void remove(const std::string& remote_path);

 private:
  template <class Step>
  auto step(Step action);
  int64_t measure(int compartment);
  void check_that_all_are_measured(const std::vector<std::string>& names, size_t sizes, const std::string& pattern);
  std::vector<std::string> sections_of(int compartment);
  std::string first_item(const std::string& section);
  std::string oldest_item(int compartment);

  Desk& desk;
  const Work& work;
  TavrenHost host;
  std::map<int, int64_t> measured;   /* KiB by compartment */
  std::set<std::string> directories; /* that were made */
};

#endif
