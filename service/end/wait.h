#pragma once

#include <functional>

/// Looks ten times a second, first after a tenth; false if it has not come true within `seconds`.
bool waitUntil(const std::function<bool()>& isTrue, int seconds);
