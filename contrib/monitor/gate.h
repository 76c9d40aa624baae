#pragma once

#include "observer.h"

#include <string>

/// Whether now is a bad moment for an update. The statuses are those of on_ac_power(1).
struct Moment {
  int status = 0;  ///< 0: no; 1: yes; 255: that cannot be told.
  std::string text;
};

/// From the second of two looks.
Moment momentOf(const Observation& found);
