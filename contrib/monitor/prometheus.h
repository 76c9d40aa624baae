#pragma once

#include "history.h"
#include "observer.h"

#include <string>

/// What goes into a file for the textfile collector of Prometheus' node exporter. A `board` that is
/// not empty becomes a label of that name.
std::string prometheusText(const Observation& found, const LastTest& lastTest,
                           const std::string& board);
