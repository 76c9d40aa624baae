"""What runs inside the machine, in the place of the virtual board's own."""
