#pragma once

#include "note.h"

/// Ends the daemon's own way down, with everything unmounted or read-only: without AC power it
/// cuts the battery, with AC power it turns a power-off into a reboot, so that the board is not
/// left off with power there. Returns if neither is called for or comes about; the way down then
/// goes on as systemd meant. Throws if a line cannot be used.
void endWayDown(const Note& note);
