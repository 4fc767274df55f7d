"""The far end of a serial line that nobody drives: a pseudo-terminal, and every byte that came over it."""

import os
import threading
import tty

from . import process


_END = b"the end of what came over the line"


def split(data):
    """The whole frames in some bytes."""
    return [data[at : at + 4] for at in range(0, len(data) - len(data) % 4, 4)]


class Witness:
    """A pseudo-terminal whose far end is read all the time. Its near end stays open, so that nothing gets lost."""

    def __enter__(self):
        self._far_end, self._near_end = os.openpty()
        tty.setraw(self._near_end)
        self.line = os.ttyname(self._near_end)
        self._bytes = bytearray()
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        return self

    def __exit__(self, *_):
        os.close(self._near_end)
        self._reader.join(process.LIMIT_S)
        os.close(self._far_end)

    def _read(self):
        while True:
            try:
                data = os.read(self._far_end, 4096)
            except OSError:  # nobody has the near end open any more
                return
            self._bytes += data

    def bytes(self):
        """All bytes so far."""
        return bytes(self._bytes)

    def frames(self):
        """All whole frames so far."""
        return split(self.bytes())

    def finish(self):
        """All bytes, to the last one: for when nobody else writes any more. Ends the witness's account."""
        os.write(self._near_end, _END)
        process.wait_until(lambda: self.bytes().endswith(_END), "the end of what came over the line")
        return self.bytes()[: -len(_END)]

    def wait_for_frame(self, expected):
        """Waits until the frame that came last is the expected one."""
        process.wait_until(lambda: self.frames()[-1:] == [expected],
                           lambda: f"the frame {expected.hex(' ')}; the last ones were "
                                   + ", ".join(frame.hex(" ") for frame in self.frames()[-3:]))
