#pragma once

/// Takes the lock that only one daemon can hold, for the rest of the process's
/// life; a command that the daemon starts inherits it.
/// Returns true if another process holds it. A lock file that cannot be opened
/// or locked for any other reason counts as free: a board with a broken
/// /var/run is still guarded.
bool acquireInstanceLock();
