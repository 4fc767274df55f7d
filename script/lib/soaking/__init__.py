"""Long runs of the panel and of the CANopen master, in which nothing is lost, nothing grows and nothing hangs."""
