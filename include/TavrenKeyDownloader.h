/* Fetching an archive host's public key without prior trust. */
#ifndef TAVREN_KEY_DOWNLOADER_H
#define TAVREN_KEY_DOWNLOADER_H

#include <memory>
#include <string>

#include "TavrenProcess.h"
#include "tavren_constants.h"

/*
 * Lets the secure shell client meet the host as if for the first time, record its key in a private file, and go no
 * further than the password prompt. Whether the key is the right one somebody has to say (tavren_host_key_fingerprint).
 *
 * An object is one attempt. It owns its child and belongs to one thread; all downloads of a program use one file in its
 * private temporary directory (tavren_setup_tmp_dir), so make one at a time.
 */
class TAVREN_EXPORT TavrenKeyDownloader {
 public:
  /* Starts the client for host, a name or an address. Throws TavrenError; no directory is a failed assertion. */
  explicit TavrenKeyDownloader(const std::string& host);

  /* Stops the client. */
  ~TavrenKeyDownloader();

  TavrenKeyDownloader(const TavrenKeyDownloader&) = delete;
  TavrenKeyDownloader& operator=(const TavrenKeyDownloader&) = delete;

  /*
   * Fetches the key: type, blank, encoded key. Once only. Throws TavrenError: what TavrenProcess reports of the client,
   * TAVREN_E_FILE_OPEN and TAVREN_E_FILE_READ for a key that cannot be read back, TAVREN_E_HOST_KEY_TOO_LARGE for one
   * of TAVREN_HOST_KEY_SIZE characters or more; and TavrenTimeout after ssh_connect_timeout seconds (a tunable), as for
   * a host whose banner does not end in a newline.
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
