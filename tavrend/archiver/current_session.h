#ifndef TAVREND_ARCHIVER_CURRENT_SESSION_H
#define TAVREND_ARCHIVER_CURRENT_SESSION_H

#include <memory>

#include "TavrenError.h"
#include "archiver/desk.h"
#include "archiver/session.h"

/* Why there is no session. */
struct NoSession {
  TavrenError error;
};

/* The session of the present work: opened when there is something for it, and anew where the last one broke. */
class CurrentSession {
 public:
  explicit CurrentSession(Desk& where) : desk(where) {}

  /* Returns the session, claiming the archive where that is to be done. Throws NoSession, and as a session does. */
  Session& get(const Work& work);

  void close() { session.reset(); }

 private:
  Desk& desk;
  std::unique_ptr<Session> session;
};

#endif
