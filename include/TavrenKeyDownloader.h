/*
 * Fetching an archive host's public key without prior trust.
 */
#ifndef TAVREN_KEY_DOWNLOADER_H
#define TAVREN_KEY_DOWNLOADER_H

#include <memory>
#include <string>

#include "TavrenProcess.h"
#include "tavren_constants.h"

/*
 * Lets the secure shell client meet the host as if for the first time, record its key in a private file, and go no
 * further than the password prompt. It does not log in, and it does not say whether the key is the right one: show its
 * fingerprint (tavren_host_key_fingerprint) to somebody who knows.
 *
 * An object is one attempt. It owns its child and belongs to one thread; all downloads of a program use the same file
 * in its private temporary directory (tavren_setup_tmp_dir), so make one at a time.
 */
class TAVREN_EXPORT TavrenKeyDownloader {
 public:
  /*
   * Starts the client for host, a name or an address. Throws TavrenError when a system call fails; without a private
   * temporary directory it is a failed assertion.
   */
  explicit TavrenKeyDownloader(const std::string& host);

  /* Stops the client. */
  ~TavrenKeyDownloader();

  TavrenKeyDownloader(const TavrenKeyDownloader&) = delete;
  TavrenKeyDownloader& operator=(const TavrenKeyDownloader&) = delete;

  /*
   * Fetches the key: type, blank, encoded key. May be called once. Throws TavrenError: what TavrenProcess reports of
   * the client, such as TAVREN_E_PROGRAM_EXITED with its last lines; TAVREN_E_FILE_OPEN or TAVREN_E_FILE_READ when the
   * key cannot be read back, TAVREN_E_HOST_KEY_TOO_LARGE for one of TAVREN_HOST_KEY_SIZE characters or more; and
   * TavrenTimeout when the host does not answer within ssh_connect_timeout seconds (a tunable).
   */
  void download_host_key(std::string& key);

 private:
  void download_key_to_file();
  void read_key_from_file(std::string& key);

  std::string host;
  char key_file[4096]; /* path of the private known-hosts file */
  std::unique_ptr<TavrenProcess> process;
};

#endif
