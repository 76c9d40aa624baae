#pragma once

#include "dispatcher.h"
#include "history.h"
#include "observer.h"
#include "settings.h"

#include <string>

/// All that the program works on.
struct Monitor {
  MonitorSettings settings;
  Observer observer;
  History history;
  Dispatcher dispatcher;
  /// What the file for the state has.
  std::string saved;
  /// What was told last, each problem once, however often it is found.
  std::string said;
};

/// Takes up what an earlier one has saved. What cannot be read is told and forgotten.
void start(Monitor& monitor);

/// One look, and all that follows from it but the calls for events. Returns what it has found.
Observation lookAndTell(Monitor& monitor);

/// Takes note of a call that has ended.
void checkCalls(Monitor& monitor);

/// The same, and starts the next call.
void goOnWithCalls(Monitor& monitor);

/// Before the end: what would be untrue without this program goes.
void takeAway(const Monitor& monitor);
