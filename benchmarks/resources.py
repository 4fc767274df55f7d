"""Runs a program and tells what it took: the wall clock in seconds ("s"), and its memory in MB ("MB")."""

import resource
import subprocess
import sys
import time

begin = time.monotonic()
status = subprocess.run(sys.argv[1:], check=False, stdout=subprocess.DEVNULL).returncode
print(f"s {time.monotonic() - begin:.2f}")
print(f"MB {resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss * 1024 / 1e6:.1f}")
sys.exit(status)
