#pragma once

#include <cstdint>

// The lines that are played, for both versions of the line library. What can fail sets errno and
// returns -1.

/// A chip as a process has it open, and what it has looked up there; from a fixed supply.
struct OpenChip {
  int number;  ///< -1: free.
  int line;
  bool wasUsed;      ///< When it was looked up.
  bool isRequested;  ///< By this process.
};

OpenChip* openChip(int number);

/// Gives its lines back.
void closeChip(OpenChip& chip);

/// The number of the first chip from this one on, or -1.
int nextChip(int number);

/// Looks a line up, whose number the chip then has.
int findLine(OpenChip& chip, const char* name);

int requestLine(OpenChip& chip, bool isOutput, int level, const char* consumer);

int readLine(const OpenChip& chip);

int writeLine(const OpenChip& chip, int level);

/// Gives the line back that the chip has.
void releaseLine(OpenChip& chip);

// The library's chips, lines and requests are all of them open chips.

template <typename Opaque>
Opaque* as(OpenChip* chip)
{
  return reinterpret_cast<Opaque*>(chip);
}

template <typename Opaque>
OpenChip& chipOf(Opaque* object)
{
  return *reinterpret_cast<OpenChip*>(object);
}
