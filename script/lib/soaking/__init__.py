"""Long runs that prove that nothing is lost, nothing grows and nothing hangs: of the panel, and of the CANopen master."""
