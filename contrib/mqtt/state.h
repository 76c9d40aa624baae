#pragma once

#include "history.h"
#include "observer.h"

#include <string>

/// The state as JSON. What is not known is null; so is all that only a daemon can say of which no
/// life is seen.
std::string stateText(const Observation& found, const LastTest& lastTest);
