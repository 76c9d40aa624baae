"""The host's side of the virtual board: building its kernel and running it."""
