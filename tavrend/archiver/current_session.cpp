#include "archiver/current_session.h"

#include <utility>

Session& CurrentSession::get(const Work& work) {
  if (session != nullptr) return *session;
  auto fresh = std::make_unique<Session>(desk, work);
  try {
    fresh->open();
    if (work.claim) fresh->claim();
  } catch (const TavrenError& error) {
    /* Not about the item that it was for, whatever the error: a directory that is gone looks like a refused item. */
    throw NoSession{error};
  }
  session = std::move(fresh);
  return *session;
}
