"""Drives the panel on a simulated vehicle as an operator would: with the mouse, and by looking at the screen."""
