"""Fault scenarios for the real programs: see scripts/torture."""
