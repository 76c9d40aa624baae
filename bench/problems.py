"""Why something is not measured."""


class CannotMeasure(Exception):
    """The text says why."""
