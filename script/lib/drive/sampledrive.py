"""A recording of a drive that never was, the same each time: for pictures and tests of what is made of recordings."""

import math
import random

START = "2026-11-22T13:25:03.123456+02:00 monotonic 1234.567890"
CYCLE_S = 0.2103
DELAY_S = 0.045
STANDSTILL = 32767
RPM_OF_A_COUNT = 0.327701
MOTOR_TIME_S = 0.8


class Vehicle:
    """What the vehicle would answer."""

    def __init__(self):
        self.speed_rpm = 0.0
        self.capacity_ah = 63.4

    def reply(self, throttle, backwards, motor, seconds, noise):
        wanted = (-1 if backwards else 1) * 2400 * throttle / 255 if motor else 0
        lag = wanted - self.speed_rpm
        self.speed_rpm += lag * (1 - math.exp(-seconds / MOTOR_TIME_S))
        current = 0.4 + (35 * abs(self.speed_rpm) + 30 * abs(lag)) / 2400 if wanted else 0.4
        self.capacity_ah -= current * seconds / 3600 * 8
        voltage = 440 + 0.8 * self.capacity_ah - 0.4 * current + noise.uniform(-0.5, 0.5)
        raw = STANDSTILL - round(self.speed_rpm / RPM_OF_A_COUNT)
        numbers = (*divmod(raw, 256), *divmod(round(voltage), 256), *divmod(round(10 * current), 256),
                   *divmod(round(self.capacity_ah), 256), 0xA0, 0x42, 0xDD, 0x23, 0)
        return b"".join(bytes((value, 0xA0 + slot, 0xB0 + slot)) for slot, value in enumerate(numbers))


def frame(time_s, length_s):
    """The set-points of a moment: forwards with some turns, a way back, a rest, and more throttle towards the end."""
    share = time_s / length_s
    if share < 0.02 or share > 0.97 or 0.57 < share < 0.63:
        return 0, 103, 110, False
    backwards = 0.36 < share < 0.45
    throttle = abs(math.sin(share * 19)) * (210 if share < 0.75 else 255)
    direction = 103 + 55 * math.sin(share * 43) * (0.2 + abs(math.sin(share * 5)))
    return round(throttle), round(max(35, min(175, direction))), 172 if backwards else 47, True


def lines(length_s, faulty):
    """The lines of a recording."""
    noise = random.Random(7)
    vehicle = Vehicle()
    yield "# vehicle-recorder recording 1"
    yield "# program vehicle-recorder 2.1.0"
    yield "# device /dev/ttyUSB0"
    yield f"# start {START}"
    pause = (0.58 * length_s, 0.62 * length_s)
    time_s = 0.31
    opened = False
    while time_s < length_s:
        if pause[0] < time_s < pause[1]:
            if opened:
                yield f"{time_s:.6f} close"
                opened = False
            time_s = pause[1]
            continue
        if not opened:
            yield f"{time_s - 0.305:.6f} open"
            yield f"{time_s - 0.3049:.6f} line 9600 8N1 none"
            opened = True
        throttle, direction, bucket, motor = frame(time_s, length_s)
        yield f"{time_s:.6f} > {throttle:02x}{direction:02x}{bucket:02x}{'51' if motor else '50'}"
        reply = vehicle.reply(throttle, bucket > 110, motor, CYCLE_S, noise)
        silent = faulty and (0.70 * length_s < time_s < 0.703 * length_s or noise.random() < 0.004)
        delay_us = round((DELAY_S + abs(noise.gauss(0, 0.0008))) * 1e6)
        if not silent:
            short = faulty and noise.random() < 0.002
            yield f"+{delay_us} < {reply[:20 if short else 39].hex()}"
        time_s += CYCLE_S + abs(noise.gauss(0, 0.0004)) + (0.04 if noise.random() < 0.004 else 0)
    yield f"{time_s:.6f} > 00676e50"
    yield f"{time_s + 0.0004:.6f} close"
    yield f"{time_s + 0.06:.6f} note the program ended with status 0"
    yield f"{time_s + 0.061:.6f} end"


def write(path, length_s=960, faulty=True):
    """Writes the recording into a file."""
    with open(path, "w", encoding="utf-8") as file:
        file.writelines(line + "\n" for line in lines(length_s, faulty))
