#pragma once

/// Handles SIGINT and SIGTERM in every mode: ends the process, with AC power
/// reconnected first if a battery test is running. Status 0, or 1 if
/// reconnecting failed.
[[noreturn]] void handleInterrupt(int signalNumber);
