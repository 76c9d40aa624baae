#pragma once

// The two loops end only with the process. They catch nothing: an exception of
// the line library ends the daemon.

/// Watches AC power, tests the battery and shuts the system down on an empty one.
/// Needs all four lines requested.
[[noreturn]] void runFullServer();

/// Only publishes whether AC power is present. Needs pwrInLine requested.
[[noreturn]] void runMinimalServer();

/// Runs one battery test with everything that belongs to it: `testing`, both
/// times, the result file and the result line.
void runScheduledTest();
