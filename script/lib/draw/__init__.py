"""Makes the guides' pictures: close-ups with numbers, time diagrams, the graphs of the rooms and of the threads."""
