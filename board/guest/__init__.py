"""What runs inside the virtual board: its first process and the library for tests."""
