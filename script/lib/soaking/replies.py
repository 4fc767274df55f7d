"""What a recording of the line must tell of the replies, from the log of the simulated vehicle."""

import re

ANY_MOMENT_S = 0.02  # two clocks, and two turns of processes on a busy machine, are not closer than this
AWAITED_S = 1.0  # so long behind a frame the line must stay open for its reply to be missed
REPLY_BYTES = 39


class Exchange:
    """A frame that the vehicle received, and what it did then."""

    def __init__(self, time_s):
        self.time_s = time_s
        self.fault = []  # the words of the random fault, if there was one
        self.speed = None
        self.begin_s = self.end_s = None  # when its reply went out; none when it is muted
        self.closed_s = None  # when the line was closed behind it
        self.next_s = None  # when the next frame of the same opening came


class Expected:
    """Numbers that the report of a recording must tell, each with what it may be at least and at most.

    A reply that goes out in the very moment in which the next frame comes, or while the line is closed, may count on
    either side of it.
    """

    def __init__(self, log, late_ms, late_every, closings=()):
        """
        log         the lines of the vehicle's log
        late_ms     how late a reply without a random fault is,
        late_every  each so many replies
        closings    for each opening, how long behind its last frame the program closed the line; where none is told,
                    the time of the log counts
        """
        self.undecided = 0
        self._openings = self._read(log, late_ms, late_every)
        for opening, behind_s in zip(self._openings, closings):
            for exchange in opening:
                exchange.closed_s = opening[-1].time_s + behind_s
        self._low = dict.fromkeys(("frames", "replies", "lost", "late", "short", "garbled"), 0)
        self._high = dict(self._low)
        self._speeds, self._possible_speeds = [], []
        for opening in self._openings:
            self._judge(opening)

    def bounds(self, name):
        """The least and the most that the report may tell."""
        if name == "top speed":
            least = min(self._possible_speeds, default=0)  # where no speed is certain
            return max(self._speeds, default=least), max(self._speeds + self._possible_speeds, default=0)
        return self._low[name], self._high[name]

    def _read(self, log, late_ms, late_every):
        openings, replies, sent_until = [], 0, 0.0
        for line in log:
            time_s, what, *words = line.split()
            time_s = float(time_s)
            if what == "opened":
                openings.append([])
                sent_until = 0.0
            elif what == "closed":
                for exchange in openings[-1]:
                    exchange.closed_s = time_s
            elif what == "received":
                exchange = Exchange(time_s)
                if openings[-1]:
                    openings[-1][-1].next_s = time_s
                openings[-1].append(exchange)
            elif what == "fault":
                openings[-1][-1].fault = words
            elif what in ("replied", "muted"):
                replies += 1
                exchange = openings[-1][-1]
                exchange.speed = int(re.search(r" speed (-?\d+)", line).group(1))
                if what == "replied":
                    late = late_ms / 1000 if not exchange.fault and replies % late_every == 0 else 0
                    begin, end = self._times(exchange, late)
                    exchange.begin_s = max(begin, sent_until)
                    exchange.end_s = sent_until = max(end, sent_until)
        return openings

    @staticmethod
    def _times(exchange, late_s):
        """When a reply goes out, if nothing is ahead of it."""
        begin = end = exchange.time_s + late_s
        if exchange.fault[:1] == ["delayed"]:
            begin = end = begin + int(exchange.fault[1]) / 1000
        elif exchange.fault[:1] == ["split"]:
            end = begin + (int(exchange.fault[1]) - 1) * int(exchange.fault[3]) / 1000
        return begin, end

    def _count(self, name, certainly, possibly=None):
        possibly = certainly if possibly is None else possibly
        self._low[name] += certainly
        self._high[name] += possibly
        self.undecided += certainly != possibly

    def _judge(self, opening):
        self._count("frames", len(opening))
        answered = [self._is_answered(exchange) for exchange in opening]
        # Nothing is missed of which nobody can know whether it was on its way.
        known = max((index for index, sure in enumerate(answered) if sure is not False), default=-1)
        for index, (exchange, sure) in enumerate(zip(opening, answered)):
            self._count("replies", sure is True, sure is not False)
            if sure is False:
                open_s = float("inf") if exchange.closed_s is None else exchange.closed_s - exchange.time_s
                decided = any(one is True for one in answered[index + 1:])
                self._count("lost", decided or open_s > AWAITED_S + ANY_MOMENT_S,
                            index < known or open_s > AWAITED_S - ANY_MOMENT_S)
                continue
            if exchange.fault[:1] != ["short"]:
                (self._speeds if sure else self._possible_speeds).append(exchange.speed)
            # The closing may come into the middle of a reply.
            is_short = exchange.fault[:1] == ["short"]
            self._count("short", sure is True and is_short, is_short or sure is None)
            self._count("garbled", sure is True and exchange.fault[:1] == ["garbage"],
                        exchange.fault[:1] == ["garbage"])
            # A late reply whose successor never comes is taken for the successor's.
            follower_is_muted = index + 1 < len(opening) and answered[index + 1] is False
            if exchange.next_s is not None and not follower_is_muted:
                self._count("late", sure is True and exchange.end_s > exchange.next_s + ANY_MOMENT_S,
                            exchange.end_s > exchange.next_s - ANY_MOMENT_S)

    @staticmethod
    def _is_answered(exchange):
        """Whether the reply came before the line was closed; None if a moment decides."""
        if exchange.begin_s is None:
            return False
        if exchange.closed_s is None or exchange.end_s < exchange.closed_s - ANY_MOMENT_S:
            return True
        return False if exchange.begin_s > exchange.closed_s + ANY_MOMENT_S else None
