#pragma once

#include <gpiod.hpp>

#include <string>

// Levels are physical: 1 is high. The operations below that name no line work on
// those of `powerAgent`, which must have been requested, and let the exceptions
// of the line library through.

/// The holder's name that the kernel shows for our lines.
inline constexpr const char* lineConsumer = "kelvo-pwr";

// Levels of the outputs.
inline constexpr int acConnected = 0;
inline constexpr int acDisconnected = 1;
inline constexpr int batteryCut = 0;
inline constexpr int batteryConnected = 1;

/// Fills `line` with the line called `name`, searched on all chips of the system,
/// and returns whether it exists and is free; says on standard error why not.
/// Does not request it.
bool acquireLine(gpiod::line& line, const std::string& name);

/// Takes an acquired line until the process ends. Throws if that fails.
void requestInput(gpiod::line& line);

/// As requestInput; drives `level` from the first moment.
void requestOutput(gpiod::line& line, int level);

/// Reads the AC line and publishes missingPower.
bool isPowerPresent();

/// Whether the battery voltage is sufficient.
bool isBatteryOk();

/// As isBatteryOk, and publishes batteryEmpty.
bool checkBattery();

void disconnectAcPower();

void connectAcPower();

/// The board dies here if AC power is missing.
void disconnectBattery();

void connectBattery();
