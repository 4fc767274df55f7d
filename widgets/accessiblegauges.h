/// @file
/// What the gauges tell people who do not see them: screen readers, Braille displays, test tools.
///
/// Such a client asks the toolkit for an interface to a widget (QAccessible; on Linux the toolkit's AT-SPI
/// bridge passes it on over D-Bus). A drawn widget is an empty area to it, unless an interface of its own
/// tells more:
///
/// | Gauge                       | Role         | States                             | Value                   | In words    |
/// |-----------------------------|--------------|------------------------------------|-------------------------|-------------|
/// | AbstractMeter and its heirs | progress bar | read-only                          | minimum, maximum, value | "900 [rpm]" |
/// | Led                         | check box    | read-only, checkable; checked: lit | none                    | "päällä"    |
///
/// A meter's words are its prefix, value and suffix; a lamp's are "päällä" (on) or "pois" (off).
///
/// The toolkit has no role of a measuring instrument. A progress bar is what clients announce as something
/// that shows a figure, follow while it changes and offer no way to turn; a dial or a slider is announced as
/// a control. In the same way a lamp is a check box that cannot be pressed: clients say its state without
/// being asked to look for it, which they do for no indicator.
///
/// The name is the accessible name, else the text of the label whose buddy the gauge is (or the title of the
/// group box around it), else the object name. The words of the value are also the description, before what
/// the accessible description holds: AT-SPI clients get no other text of a gauge.
///
/// Changes are told while a client is listening (QAccessible::isActive()); before that they cost one
/// comparison.

#ifndef WIDGETS_ACCESSIBLEGAUGES_H
#define WIDGETS_ACCESSIBLEGAUGES_H

class AbstractMeter;
class Led;

/// Has the toolkit ask here for the interfaces of meters and lamps, from now to the end of the application
/// object.
///
/// Every gauge calls it when it is made: nobody else needs to. It may be called any number of times.
///
/// @pre called in the thread of the widgets
void makeGaugesAccessible();

/// Tells clients, if there are any, that @p meter shows another value.
void tellValueChanged(AbstractMeter& meter);

/// Tells clients, if there are any, that @p meter shows the same value with other words around it.
void tellValueTextChanged(AbstractMeter& meter);

/// Tells clients, if there are any, that @p lamp was switched on or off.
void tellLampSwitched(Led& lamp);

#endif
