#pragma once

#include "preloaded.h"

#include <string>

/// Past the streams: one that a signal interrupts may be written once more at the end.
void step(const std::string& call);

/// Where the signal is sent that SIGNAL_AT_THE_END asks for.
void lineIsGivenBack();
