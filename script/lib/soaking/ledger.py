"""Both ends of the vehicle's line, held against each other, to the byte.

One end is the panel's: the calls that it makes on the line, as the witness writes them down ("wrote 4 4 00 67 6e 50").
The other is the vehicle's: its log ("received 00 67 6e 50 ...", "replied 39 bytes 7f a0 ...").

Frames: what the panel wrote is what the vehicle received, in that order, whatever becomes of the replies.

Replies: a fault may take a reply away, shorten it, stretch it, or put garbage ahead of it. The log tells what was given
to the line in the end, and the panel takes exactly that, in that order, up to a hundred bytes with each read. Only what
was still on its way when the panel closed the line may be missing; a pseudo-terminal keeps what had arrived by then,
and the panel finds it there at the next opening, before anything new.
"""

import collections

RECEIVE_BUFFER = 100
CAPACITY_SLOTS = (18, 21)  # positions of the high and the low byte in the receive buffer
CAPACITY_RANGE = (0, 100)


class Opening:
    """One opening of the line: how many frames passed, and the replies that were given, taken, and kept from before."""

    def __init__(self):
        self.sent = self.received = 0
        self._kept = None  # unknown until the opening before is settled
        self._given = bytearray()
        self._taken = bytearray()
        self._starts = None  # how much of what was kept may come first
        self._agreed = 0  # bytes that were given and taken
        self.given_open = self.taken_open = False
        self.given_closed = self.taken_closed = False

    def give(self, data):
        self._given += data

    def take(self, data):
        self._taken += data

    def keep(self, data):
        """What the opening before left behind: none of it, all of it, or its first part comes first."""
        self._kept = bytes(data)
        self._starts = list(range(len(self._kept) + 1))

    def _agrees(self, start):
        stream = self._kept[:start] + self._given
        count = min(len(stream), len(self._taken))
        return stream[:count] == self._taken[:count]

    def settle(self):
        """Whether what was taken so far is what was given; drops what is known to agree."""
        self._starts = [start for start in self._starts if self._agrees(start)]
        if len(self._starts) == 1 and self._taken:
            self._given = bytearray(self._kept[:self._starts[0]]) + self._given
            count = min(len(self._given), len(self._taken))
            del self._given[:count], self._taken[:count]
            self._agreed += count
            self.keep(b"")
        return bool(self._starts)

    def forget(self):
        """Starts anew with what is given and taken from now on."""
        self._given.clear()
        self._taken.clear()
        self.keep(b"")

    def position(self):
        """Where the last byte given so far stands; see has_taken()."""
        return self._agreed + self._starts[-1] + len(self._given) if self._starts else 0

    def has_taken(self, position):
        """Whether everything up to there has been taken, and found right."""
        return self._agreed >= position

    def rest(self):
        """What was given and not taken; None when more was taken than given. Only of an opening that is over."""
        stream = self._kept[:self._starts[-1]] + bytes(self._given)
        return stream[len(self._taken):] if len(self._taken) <= len(stream) else None


class Ledger:
    """The account of a run: feed it with the lines of both ends, in any order between them."""

    def __init__(self):
        self.asked = 0  # frames that the panel asked the line to send
        self.sent = 0  # of these the ones that the line took whole
        self.received = 0  # frames that reached the vehicle
        self.replies = 0
        self.faults = collections.Counter()
        self.given = 0  # bytes of replies
        self.taken = 0
        self.reads = 0
        self.openings = 0
        self.closings = 0
        self.worst_gap_s = 0.0
        self.last_frame = None
        self.last_count = 0  # bytes that the panel's last read brought
        self.capacity = 0  # what the panel's bar shows
        self.problems = []
        self._written = collections.deque()
        self._arrived = collections.deque()
        self._new_frames = []
        self._last_time_s = None
        self._buffer = bytearray(RECEIVE_BUFFER)
        self._openings = collections.deque()
        self._giving = None
        self._taking = None
        self._kept = b""

    def take_new_frames(self):
        """The frames that reached the vehicle since the last call."""
        frames, self._new_frames = self._new_frames, []
        return frames

    def frames_agree(self):
        """Whether every frame that was sent has been received."""
        return not self._written and not self._arrived

    def opening(self):
        """The opening that is under way, or the last one; None before the first."""
        return self._taking

    # The vehicle's end.

    def vehicle(self, line):
        """Takes a line of the vehicle's log."""
        words = line.split()
        what = words[1]
        if what == "received":
            self._received(float(words[0]), bytes(int(word, 16) for word in words[2:6]))
        elif what == "replied":
            count = int(words[2])
            self._replied(bytes(int(word, 16) for word in words[4 : 4 + count]))
        elif what == "muted":
            self._replied(b"")
        elif what == "fault":
            self.faults[words[2]] += 1
        elif what == "opened":
            self._last_time_s = None
            self._giving = self._opening(lambda opening: opening.given_open)
            self._giving.given_open = True
        elif what == "closed":
            self._giving.given_closed = True
        self._settle()

    def _received(self, time_s, frame):
        self.received += 1
        self._giving.received += 1
        self.last_frame = frame
        self._new_frames.append(frame)
        self._arrived.append(frame)
        if self._last_time_s is not None:
            self.worst_gap_s = max(self.worst_gap_s, time_s - self._last_time_s)
        self._last_time_s = time_s

    def _replied(self, data):
        self.replies += 1
        self.given += len(data)
        self._giving.give(data)

    # The panel's end.

    def witness(self, line):
        """Takes a line of the witness."""
        words = line.split()
        what = words[1]
        if what == "read":
            count = int(words[2])
            self._read(bytes(int(word, 16) for word in words[3 : 3 + max(count, 0)]), count)
        elif what == "wrote":
            self._wrote(int(words[2]), int(words[3]), bytes(int(word, 16) for word in words[4:]))
        elif what == "opened":
            self.openings += 1
            self._taking = self._opening(lambda opening: opening.taken_open)
            self._taking.taken_open = True
        elif what == "closed":
            self.closings += 1
            self._taking.taken_closed = True
        self._settle()

    def _read(self, data, count):
        self.reads += 1
        self.last_count = count
        if count < 0:
            self._fault("a read of the line failed")
        self.taken += len(data)
        self._taking.take(data)
        self._buffer[: len(data)] = data
        capacity = self._buffer[CAPACITY_SLOTS[0]] * 256 + self._buffer[CAPACITY_SLOTS[1]]
        if CAPACITY_RANGE[0] <= capacity <= CAPACITY_RANGE[1]:
            self.capacity = capacity

    def _wrote(self, size, result, data):
        self.asked += 1
        if result != size:
            self._fault(f"the line took {result} of the {size} bytes of a frame")
            return
        self.sent += 1
        self._taking.sent += 1
        self._written.append(data)

    # One against the other.

    def _opening(self, is_used):
        for opening in self._openings:
            if not is_used(opening):
                return opening
        opening = Opening()
        if not self._openings:
            opening.keep(self._kept)
        self._openings.append(opening)
        return opening

    def _fault(self, text):
        if not self.problems:  # what follows from it says no more
            self.problems.append(text)

    def _settle(self):
        while self._written and self._arrived:
            sent, received = self._written.popleft(), self._arrived.popleft()
            if sent != received:
                self._fault(f"the panel sent {sent.hex(' ')}, the vehicle received {received.hex(' ')}")
        if not self._openings:
            return
        opening = self._openings[0]
        if not opening.settle():
            self._fault("the panel took other bytes from the line than the vehicle gave")
            opening.forget()
        if opening.given_closed and opening.taken_closed:
            self._end(opening)

    def _end(self, opening):
        if opening.sent != opening.received:
            self._fault(f"in one opening the panel sent {opening.sent} frames, the vehicle received {opening.received}")
        rest = opening.rest()
        if rest is None:
            self._fault("the panel took more bytes from the line than the vehicle gave")
            rest = b""
        self._kept = rest
        self._openings.popleft()
        if self._openings:
            self._openings[0].keep(rest)


def stray_frames(frames, wishes, sweep=False):
    """Those frames that nobody asked for.

    Every byte of a frame is one of a wish in `wishes`. Not every frame is a wish as a whole: the panel stores the three
    set-points one after the other while its link may be sending. With `sweep`, a set-point that was pulled from one
    place to another may also be anywhere between.
    """
    columns = [[wish[i] for wish in wishes] for i in range(4)]

    def is_wished(i, byte):
        return min(columns[i]) <= byte <= max(columns[i]) if sweep and i < 3 else byte in columns[i]

    return [frame for frame in frames if not all(is_wished(i, byte) for i, byte in enumerate(frame))]
