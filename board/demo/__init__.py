"""The story that `scripts/demo` plays on the board, and the ways to show it."""
