#include "shared/shared_state.h"

#include <boost/interprocess/shared_memory_object.hpp>

#include <atomic>
#include <cstddef>
#include <exception>
#include <iostream>

namespace interprocess = boost::interprocess;

namespace {

/// Holds the library's header, its index and both records.
constexpr std::size_t segmentBytes = 1024;

template <typename OpenMode>
void openSharedState(SharedState& sharedState, OpenMode openMode)
{
  try {
    sharedState.segment =
        interprocess::managed_shared_memory(openMode, sharedState.segmentName.c_str());
    sharedState.status =
        sharedState.segment.find<KelvoPowerStatus_struct>(interprocess::unique_instance).first;
    sharedState.request =
        sharedState.segment.find<KelvoPowerRequest_struct>(interprocess::unique_instance).first;
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
  }
}

}  // namespace

SharedState::~SharedState()
{
  status = nullptr;
  request = nullptr;
  // A signal may arrive while the segment is being unmapped; its handler must
  // not find the old pointers.
  std::atomic_signal_fence(std::memory_order_seq_cst);
}

void createSharedState(SharedState& sharedState)
{
  try {
    const char* name = sharedState.segmentName.c_str();
    interprocess::shared_memory_object::remove(name);
    sharedState.segment =
        interprocess::managed_shared_memory(interprocess::create_only, name, segmentBytes);
    sharedState.status =
        sharedState.segment.construct<KelvoPowerStatus_struct>(interprocess::unique_instance)();
    sharedState.request =
        sharedState.segment.construct<KelvoPowerRequest_struct>(interprocess::unique_instance)();
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
  }
}

void openSharedStateReadOnly(SharedState& sharedState)
{
  openSharedState(sharedState, interprocess::open_read_only);
}

void openSharedStateReadWrite(SharedState& sharedState)
{
  openSharedState(sharedState, interprocess::open_only);
}
