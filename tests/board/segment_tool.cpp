// A process other than the daemon that writes to the shared segment, for tests:
//   segment_tool set FIELD=VALUE...        changes fields of the records
//   segment_tool make [status] [request]   makes a new segment with these records
//   segment_tool die-with-lock             is killed while it holds the library's own lock

#include "shared/shared_state.h"

#include <boost/interprocess/managed_shared_memory.hpp>

#include <csignal>
#include <cstdint>
#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

template <typename Field>
std::function<void(unsigned long)> writerOf(volatile Field& field)
{
  return [&field](unsigned long value) { field = static_cast<Field>(value); };
}

void setFields(int count, char* assignments[])
{
  SharedState sharedState;
  openSharedStateReadWrite(sharedState);
  if (sharedState.status == nullptr || sharedState.request == nullptr) {
    throw std::runtime_error("no records");
  }
  volatile KelvoPowerStatus_struct& status = *sharedState.status;
  volatile KelvoPowerRequest_struct& request = *sharedState.request;
  const std::map<std::string, std::function<void(unsigned long)>, std::less<>> writers = {
      {"count", writerOf(status.count)},
      {"missingPower", writerOf(status.missingPower)},
      {"batteryEmpty", writerOf(status.batteryEmpty)},
      {"batteryBad", writerOf(status.batteryBad)},
      {"testing", writerOf(status.testing)},
      {"runTest", writerOf(request.runTest)},
      {"runTestNow", writerOf(request.runTestNow)},
      {"duration", writerOf(request.duration)},
  };
  for (int i = 0; i < count; ++i) {
    const std::string_view assignment = assignments[i];
    const auto equals = assignment.find('=');
    writers.at(std::string(assignment.substr(0, equals)))(
        std::stoul(std::string(assignment.substr(equals + 1))));
  }
}

void makeSegment(int count, char* records[])
{
  namespace interprocess = boost::interprocess;
  const SharedState names;
  const char* name = names.segmentName.c_str();
  interprocess::shared_memory_object::remove(name);
  interprocess::managed_shared_memory segment(interprocess::create_only, name, 1024);
  for (int i = 0; i < count; ++i) {
    if (std::string_view(records[i]) == "status") {
      segment.construct<KelvoPowerStatus_struct>(interprocess::unique_instance)();
    } else {
      segment.construct<KelvoPowerRequest_struct>(interprocess::unique_instance)();
    }
  }
}

void dieWithLock()
{
  SharedState sharedState;
  openSharedStateReadWrite(sharedState);
  auto die = [] { std::raise(SIGKILL); };
  sharedState.segment.atomic_func(die);
}

}  // namespace

int main(int argc, char* argv[])
{
  const std::string_view command = argc > 1 ? argv[1] : "";
  try {
    if (command == "set") {
      setFields(argc - 2, argv + 2);
    } else if (command == "make") {
      makeSegment(argc - 2, argv + 2);
    } else if (command == "die-with-lock") {
      dieWithLock();
    } else {
      throw std::runtime_error(
          "usage: segment_tool set FIELD=VALUE... | make [status] [request] | die-with-lock");
    }
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
}
