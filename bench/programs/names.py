"""What is measured, by the names that the tables have for it."""

DEFAULT = "kelvo-pwr"
SMALL = "kelvo-pwr, small build"
MINIMAL = "kelvo-pwr, minimal server"
OVERDUE = "kelvo-pwr, a test overdue"
BARE = "bare loop"
BARE_CLOCK = "bare loop, reading a clock"
BARE_STATIC = "bare loop, static"
EMPTY = "empty program"
TRUE = "/bin/true"
PYTHON = "Python loop"
SHELL = "shell loop"
MONITOR = "kelvo-pwr-monitor"
MQTT = "kelvo-pwr-mqtt"
NUT = "NUT, simulated UPS"

# For each figure, for each program, its value.
Round = dict[str, dict[str, float]]
