#pragma once

/// Handles SIGINT and SIGTERM in every mode: says so and ends the process, with AC
/// power reconnected first if a battery test is running. Status 0, or 1 if
/// reconnecting failed, with the reason on standard error.
[[noreturn]] void handleInterrupt(int signalNumber);
