// The least that watching a line takes: bare_loop NAME

#include <gpiod.hpp>

#include <ctime>

int main(int, char* argv[])
{
  gpiod::line line = gpiod::find_line(argv[1]);
  line.request({"bare-loop", gpiod::line_request::DIRECTION_INPUT, 0});
  while (true) {
    line.get_value();
    timespec second{1, 0};
    nanosleep(&second, &second);
  }
}
