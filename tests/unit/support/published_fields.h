#pragma once

#include <functional>
#include <string>

/// From now on a change is one against the fields of both records as they are now.
void startWatchingFields();

/// Calls `onChange` with "missingPower 1" and the like for each field that has changed since
/// the last look, whichever process looked, in the order of the records. A record that is not
/// mapped has not changed.
void lookAtFields(const std::function<void(const std::string&)>& onChange);
