"""The four lines that the board has."""

LINES = PWR_IN, AT1, AT2, BAT_SW = "PWR-IN", "BAT-T1", "BAT-T2", "BAT-SW"

# What levels 0 and 1 mean.
MEANINGS = {
    PWR_IN: ("AC power present", "AC power missing"),
    AT1: ("battery low", "battery good"),
    AT2: ("AC power connected", "AC power disconnected"),
    BAT_SW: ("battery cut off", "battery connected"),
}
