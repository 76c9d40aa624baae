#include "shared/instance_lock.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>

bool acquireInstanceLock()
{
  // Never closed, and without O_CLOEXEC: the lock lives as long as the daemon
  // and the commands that it starts.
  const int descriptor = open("/var/run/kelvo-pwr.lock", O_RDWR | O_CREAT, 0666);
  return flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}
