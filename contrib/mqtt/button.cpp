#include "button.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

std::string doubtsAboutPress(const std::string& text, bool isRetained)
{
  if (isRetained) {
    return "it was retained";
  }
  return text == pressText ? "" : std::string("it is not ") + pressText;
}

void press(const std::string& socket)
{
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (socket.size() >= sizeof address.sun_path) {
    throw std::system_error(ENAMETOOLONG, std::system_category(), socket);
  }
  std::copy(socket.begin(), socket.end(), std::begin(address.sun_path));
  const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const void* const place = &address;
  const bool isDone = connect(descriptor, static_cast<const sockaddr*>(place), sizeof address) == 0;
  const int error = errno;
  close(descriptor);
  if (!isDone) {
    throw std::system_error(error, std::system_category(), socket);
  }
}
