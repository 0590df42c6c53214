"""What tevalon-explain consists of."""
