// The least that watching a line takes, or a line and a clock: bare_loop NAME [clock]

#include <gpiod.hpp>

#include <chrono>
#include <ctime>

int main(int argc, char* argv[])
{
  gpiod::line line = gpiod::find_line(argv[1]);
  line.request({"bare-loop", gpiod::line_request::DIRECTION_INPUT, 0});
  const bool readsClock = argc > 2;
  while (true) {
    line.get_value();
    if (readsClock) {
      std::chrono::system_clock::now();
    }
    timespec second{1, 0};
    nanosleep(&second, &second);
  }
}
