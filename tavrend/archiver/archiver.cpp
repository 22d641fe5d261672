#include "archiver/archiver.h"

#include <syslog.h>
#include <time.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <system_error>

#include "TavrenExceptions.h"
#include "archiver/closed_files_run.h"
#include "archiver/failures.h"
#include "archiver/growing_file_run.h"
#include "archiver/items.h"
#include "plan/schedule.h"
#include "plan/space.h"
#include "sources/clock.h"

Archiver::Archiver(Desk& where, const std::string& temporary)
    : desk(where), directory(temporary), session(where), random(first_of_draws(desk.chassis_name(), now_ms())) {}

void Archiver::run() {
  for (bool goes_on = true; goes_on;) {
    try {
      goes_on = work_once();
    } catch (const std::exception& error) {
      /* Memory may run out in the report of a failure, too. */
      syslog(LOG_ERR, "a failure could not be reported: %s", error.what());
      session.close();
      desk.work_has_failed(0);
    }
  }
}

/* Does what is due next, and reports what fails of it as a whole. Returns whether there may be more. */
bool Archiver::work_once() {
  std::optional<TavrenError> failure;
  bool of_session = true;
  try {
    const auto work = desk.wait_for_work();
    if (!work) return false;
    archive(*work);
    desk.work_is_done(*work);
  } catch (const Cancelled&) {
    /* What was on its way is taken up again. */
  } catch (const NoSession& reason) {
    failure = reason.error;
  } catch (const TavrenError& error) {
    failure = error;
  } catch (const TavrenTimeout&) {
    failure = TavrenError(TAVREN_E_COMMAND_TIMEOUT, "archive session", "");
  } catch (const std::system_error& error) {
    failure = error_of(error);
    of_session = false;
  } catch (const std::exception& error) {
    failure = error_of(error);
    of_session = false;
  }
  session.close();
  if (!failure) return true;
  /* Also one that broke behind its login. */
  if (of_session) desk.set_connection(TAVREN_CONNECTION_FAILED, time(nullptr));
  desk.report(*failure);
  desk.work_has_failed(std::uniform_real_distribution<>(0, 1)(random));
  return true;
}

SectionWork Archiver::part_of(const Work& work, const Section& section) {
  return {desk, session, work, section, prefix, directory};
}

/*
 * Before a task is due, when something is configured anew, and where its turn does not come because the session has
 * failed or an item of it stays: what is rotated away before its turn would be lost in silence, and the status would
 * not have it.
 */
void Archiver::look_at(const Work& work, const Section& section) {
  const SectionWork to = part_of(work, section);
  const Items items(to);
  try {
    if (section.follow.empty()) {
      ClosedFilesRun(to, items).look(Unreadable::wait_for_their_turn);
    } else {
      GrowingFileRun(to, items).look(Unreadable::wait_for_their_turn);
    }
  } catch (const UnreadableFile&) {
    /* Which is reported when its turn comes. */
  }
}

bool Archiver::is_new(const Work& work, const Section& section) {
  const SectionWork to = part_of(work, section);
  return !section.follow.empty() && GrowingFileRun(to, Items(to)).is_new();
}

void Archiver::archive(const Work& work) {
  prefix = log_dir_prefix();
  for (const Section& section : work.all) {
    if (work.looks_at_all || is_new(work, section)) look_at(work, section);
  }
  const bool has_more = work.claim || work.measure_space || !work.sections.empty();
  if (has_more) archive_sections(work);
}

/* Returns the sections that are due, those first that stood behind the one in which the last session has failed. */
std::vector<Section> Archiver::in_turn(const Work& work) const {
  std::vector<Section> due = work.sections;
  const auto failed =
      std::find_if(due.begin(), due.end(), [this](const Section& section) { return section.name == failed_section; });
  if (failed != due.end()) std::rotate(due.begin(), failed + 1, due.end());
  return due;
}

void Archiver::archive_sections(const Work& work) {
  const std::vector<Section> due = in_turn(work);
  auto next = due.begin();
  const auto has_failed = [&] {
    if (next != due.end()) failed_section = next->name;
    for (; next != due.end(); ++next) look_at(work, *next);
  };
  try {
    /* Otherwise a session is opened when there is something for it. */
    if (work.claim) session.get(work);
    if (work.measure_space) measure(work);
    for (; next != due.end(); ++next) archive_section(part_of(work, *next));
    failed_section.clear();
    end_items_of_gone_sections(work);
  } catch (const NoSession&) {
    has_failed();
    throw;
  } catch (const TavrenError&) {
    has_failed();
    throw;
  } catch (const TavrenTimeout&) {
    has_failed();
    throw;
  }
}

/* Nobody else would: of a section that is configured no more an item would stay half in the archive for ever. */
void Archiver::end_items_of_gone_sections(const Work& work) {
  for (const ArchivedSection& known : desk.with_store([](Store& store) { return store.sections(); })) {
    const auto is_it = [&known](const Section& section) { return section.name == known.name; };
    if (std::any_of(work.all.begin(), work.all.end(), is_it)) continue;
    Section gone;
    gone.name = known.name;
    gone.compartment = known.compartment;
    const SectionWork to = part_of(work, gone);
    try {
      Items(to).end_all();
    } catch (const ItemStays&) {
      /* Which is reported, and tried again by the next session. */
    }
  }
}

void Archiver::measure(const Work& work) {
  for (int compartment = 0; compartment < 2; ++compartment) {
    if (work.config.space_limit[compartment] == no_space_limit) continue;
    try {
      session.get(work).used_kib(compartment);
    } catch (const TavrenError& error) {
      const bool took_too_long = error.get_ecode() == TAVREN_E_COMMAND_TIMEOUT;
      if (!took_too_long && !is_about_one_item(error)) throw;
      if (took_too_long) session.close();
      desk.report(error); /* what needs no room goes on */
    }
  }
}

void Archiver::archive_section(const SectionWork& to) {
  Items items(to);
  try {
    if (!items.resume()) return look_at(to.work, to.section);
    if (to.section.follow.empty()) {
      ClosedFilesRun(to, items).archive();
      desk.with_store([](Store& store) { store.sync(); });
    } else {
      GrowingFileRun(to, items).archive();
    }
  } catch (const UnreadableFile& file) {
    desk.report(error_of(file));
  } catch (const ItemStays&) {
    /* Which is reported, and tried again by the next run. */
    look_at(to.work, to.section);
  }
}
