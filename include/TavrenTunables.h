/* Named settings that an administrator changes at run time. Names and defaults: tavren_tunables(7). */
#ifndef TAVREN_TUNABLES_H
#define TAVREN_TUNABLES_H

#include <stdint.h>

#include <atomic>
#include <map>
#include <ostream>
#include <string>

#include "TavrenMutex.h"
#include "tavren_constants.h"

/*
 * A registry of tunables. A process has two, independent of each other: instance(), which the library reads, and
 * tavrend_tunables, which it leaves to the program that loads it. Any thread may call it: changes and prints lock,
 * getters do not, so they see a value from just before or just after a change. No tunable has bounds.
 */
class TAVREN_EXPORT TavrenTunables {
 public:
  /* One named setting. It does not lock: the registry does, around every call. */
  class TAVREN_EXPORT Tunable {
   public:
    /* Keeps name as a pointer: it must live as long as the tunable. */
    explicit Tunable(const char* name);

    virtual ~Tunable();

    Tunable(const Tunable&) = delete;
    Tunable& operator=(const Tunable&) = delete;

    /* Returns the value as text; with mention_default, a changed value is followed by its default. */
    virtual std::string get_value(bool mention_default) const = 0;

    /* Sets the value from text, "default" restoring the default; error is written only when the text is refused. */
    virtual void set_value(const std::string& text, std::string& error) = 0;

    /* Returns whether the value equals the default. */
    virtual bool value_is_default() const = 0;

   protected:
    const char* name; /* not owned */
  };

  /* A tunable that holds a number, read as tavren_cstring_to_int reads it. */
  class TAVREN_EXPORT IntTunable : public Tunable {
   public:
    /* Starts at default_value and enters itself into registry, which must not outlive it. */
    IntTunable(const char* name, int32_t default_value, TavrenTunables& registry);

    std::string get_value(bool mention_default) const override;
    void set_value(const std::string& text, std::string& error) override;
    bool value_is_default() const override;

    /* Returns the value; needs no lock. */
    int32_t get() const;

   private:
    std::atomic<int32_t> value; /* read without the registry's lock */
    int32_t default_value;
  };

  /*
   * A tunable that holds text. It cannot be set to the word default. A newline in it, which is not refused, breaks the
   * form of print_tunables: a reader takes the first line for the value, and the rest for a line of its own.
   */
  class TAVREN_EXPORT StringTunable : public Tunable {
   public:
    /* Starts at default_value and enters itself into registry, which must not outlive it. */
    StringTunable(const char* name, const std::string& default_value, TavrenTunables& registry);

    std::string get_value(bool mention_default) const override;
    void set_value(const std::string& text, std::string& error) override;
    bool value_is_default() const override;

   private:
    std::string value;
    std::string default_value;
  };

  TavrenTunables(const TavrenTunables&) = delete;
  TavrenTunables& operator=(const TavrenTunables&) = delete;

  /* Returns the registry that the library reads, built on the first call and destroyed at exit. */
  static TavrenTunables& instance();

  /* A second registry, for the program that loads the library; the library never reads it. */
  static TavrenTunables tavrend_tunables;

  /* Sets the tunable name from the text value. error is written only by a refusal, after which nothing has changed. */
  void set_tunable(const std::string& name, const std::string& value, std::string& error);

  /*
   * Applies lines of the form name=value, each ended by a newline, one by one; refusals are ignored. A line without
   * "=", or without its newline, ends the work.
   */
  void set_tunables(const std::string& text);

  /* Writes the changed tunables in the form that set_tunables reads, names ascending. */
  void print_tunables(std::ostream& out);

  /* Writes all tunables as a table for people, a changed value followed by its default. */
  void print_tunable_table(std::ostream& out);

  /* Non-zero: sessions open a local shell instead of a secure shell connection. */
  int get_loopback_login() const { return loopback_login.get(); }

  /* Seconds allowed for a remote command and for each wait of a transfer. */
  int get_ssh_command_timeout() const { return ssh_command_timeout.get(); }

  /* Seconds allowed for the secure shell connection and login. */
  int get_ssh_connect_timeout() const { return ssh_connect_timeout.get(); }

  /* Seconds allowed for the disk-usage command on the archive host. */
  int get_ssh_du_command_timeout() const { return ssh_du_command_timeout.get(); }

  /* Seconds allowed for the remote shell to start after login. */
  int get_ssh_shell_start_timeout() const { return ssh_shell_start_timeout.get(); }

  /* Bytes that the child-output log may grow to, or one piece that is larger; 0 turns it off. */
  int get_subprocess_log_size() const { return subprocess_log_size.get(); }

 private:
  TavrenTunables();
  ~TavrenTunables() = default;

  std::map<std::string, Tunable*> registry;
  TavrenMutex mutex;

  IntTunable failure_retry_interval;
  StringTunable log_dir_prefix;
  IntTunable loopback_login;
  IntTunable ssh_command_timeout;
  IntTunable ssh_connect_timeout;
  IntTunable ssh_du_command_timeout;
  IntTunable ssh_shell_start_timeout;
  IntTunable subprocess_log_size;
};

#endif
