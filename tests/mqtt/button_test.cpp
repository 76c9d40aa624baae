#include "button.h"

#include "support/temp_folder.h"

#include <cerrno>
#include <system_error>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

std::error_code problemOf(const std::string& socket)
{
  try {
    press(socket);
  } catch (const std::system_error& error) {
    return error.code();
  }
  return {};
}

}  // namespace

TEST(MqttButtonTest, ANameThatIsTooLongIsNotCut)
{
  const std::size_t room = sizeof sockaddr_un::sun_path;
  EXPECT_EQ(problemOf(std::string(room - 1, 'a')).value(), ENOENT);
  EXPECT_EQ(problemOf(std::string(room, 'a')).value(), ENAMETOOLONG);
}

TEST(MqttButtonTest, ItDoesNotWaitForSomebodyWhoIsBusy)
{
  const TempFolder folder;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::string path = folder.path("button");
  path.copy(std::begin(address.sun_path), sizeof address.sun_path - 1);
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  const void* const place = &address;
  ASSERT_EQ(bind(listener, static_cast<const sockaddr*>(place), sizeof address), 0);
  ASSERT_EQ(listen(listener, 0), 0);
  EXPECT_EQ(problemOf(path).value(), 0);
  EXPECT_EQ(problemOf(path).value(), EAGAIN);
  close(listener);
}
