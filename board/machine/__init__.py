"""Whole emulated machines: the kernel, the processor and the GPIO controller that users have."""
