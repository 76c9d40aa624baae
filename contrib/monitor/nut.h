#pragma once

#include "history.h"
#include "observer.h"

#include <string>

/// What the dummy-ups driver of Network UPS Tools reads, from a status that there is. A value that
/// is not known is empty, which takes away what the driver would make up, or would go on to show.
std::string nutText(const Observation& found, const LastTest& lastTest);
