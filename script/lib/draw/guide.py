"""What the operator's guide shows of the panel: its groups, and the widgets of each in the order of the eye.

Only names stand here; where the widgets are is asked of the form.
"""

# A group: letter, name of the picture, widgets that bound it, then what is numbered (one widget, or several as one).
GROUPS = (
    ("A", "drive", ("Browser_Y", "frame_5", "Browser_X", "radioButton", "groupBox", "label_19"), (
        ("Browser_Y",), ("frame_5",), ("Browser_X",), ("radioButton",), ("Ajotila1",), ("Ajotila2",))),
    ("B", "setpoints", ("label_4", "Browser_Kaasu", "Browser_Kauha", "label_17"), (
        ("Browser_Kaasu",), ("Browser_Suunta",), ("Browser_Kauha",))),
    ("C", "port", ("label_12", "frame_4", "pushButton_open", "label_6", "label_20", "Ohj2Check", "Navigointi_Check"), (
        ("BytesRead",), ("GreenLed",), ("RedLed",), ("pushButton_open",), ("pushButton_close",), ("comboBox_bauds",),
        ("RateSpinBox",), ("Ohj2Check",), ("Navigointi_Check",))),
    ("D", "battery", ("frame",), (
        ("BatteryCapacity",), ("KapasiteettiArvo",), ("JanniteArvo",), ("VirtaArvo",), ("thermometer",))),
    ("E", "speed", ("frame_3",), (("Nopeus_manometer",), ("MotorC",))),
    ("F", "control", ("frame_2",), (("SuuntaJannite",), ("KauhaJannite",))),
    ("G", "sliders", ("frame_6",), (
        ("KaasuSlider",), ("Browser_Status",), ("SuuntaSlider",), ("line",), ("KauhaSlider",))),
    ("H", "diagnostics", ("frame_7",), (
        ("ReceiveLed",), ("SendLed",),
        ("Nopeus_MSB", "Jannite_MSB", "Virta_MSB", "Kapasiteetti_MSB"),
        ("Nopeus_LSB", "Jannite_LSB", "Virta_LSB", "Kapasiteetti_LSB"))),
    ("I", "navigation", ("Latitude", "label_31", "FixLed", "label_35", "Nopeus_kmh", "label_33"), (
        ("Latitude",), ("Longitude",), ("Suunta",), ("Nopeus_kmh",), ("FixLed",))),
)

# The same for the serial terminal window, in coordinates of its central part.
TERMINAL = (("horizontalSlider",), ("lcdNumber",), ("textEdit",), ("OhjausNappi",), ("lcdNumber_bytes",),
            ("PortinNopeus",), ("AvaaporttiNappi",), ("SuljeporttiNappi",))


def numbered():
    """The groups with their numbers: (letter, picture, bounding widgets, [(number, widgets)])."""
    number = 0
    for letter, picture, bounding, items in GROUPS:
        labels = []
        for names in items:
            number += 1
            labels.append((str(number), names))
        yield letter, picture, bounding, labels
