/// @file
/// VT100 (ANSI X3.64) terminal control sequences on standard output.
///
/// A terminal takes the escape byte 0x1B ("\033") and the characters after it as a command: where the cursor
/// goes, what is erased, in which colour the next text appears. Each function here prints one such sequence
/// with printf(3) and does not flush, so that sequences and text that is printed by C stdio stay in order.
///
/// Colours are 0 black, 1 red, 2 green, 3 yellow, 4 blue, 5 magenta, 6 cyan and 7 white. Rows and columns
/// count from 1 at the top left corner.
///
/// The sequences are settled to the byte. Callers and their terminals expect them as they are, also where
/// they differ from the common form: the "P" after the bracket of deleteline(), insertline(), erasechar(),
/// deletechar() and insertchar(), originmode() without a bracket, the carriage return of linefeed(), and the
/// bold attribute that set_fg_color() always adds.

#ifndef NODEVIK_UTIL_VT100_H
#define NODEVIK_UTIL_VT100_H

#include "nodevik/util/export.h"

/// Prints terminal control sequences. It has no data: its functions can be called with or without an object,
/// and a class derives from it to have them at hand.
class NODEVIK_EXPORT VT100 {
public:
    /// Sets attribute, foreground and background: "\033[%hhu;%hhu;%um" with @p a, @p f + 30 and @p b + 40.
    ///
    /// @param a  attribute, e.g. 0 none, 1 bold, 4 underlined, 7 reversed
    /// @param f  foreground colour; the sum is printed modulo 256
    /// @param b  background colour; the sum is printed as it is
    static void set_color(unsigned char a, unsigned char f, unsigned char b);

    /// Sets the foreground colour, always with the bold attribute: "\033[1;%hhum" with @p c + 30 modulo 256.
    /// @param c  colour
    static void set_fg_color(unsigned char c);

    /// Sets the background colour: "\033[%hhum" with @p c + 40 modulo 256.
    /// @param c  colour
    static void set_bg_color(unsigned char c);

    /// Places the cursor: "\033[%hhu;%hhuH" with @p y, then @p x.
    /// @param x  column
    /// @param y  row
    static void goxy(unsigned char x, unsigned char y);

    /// Returns the cursor to the start of its line: the single byte 13, a carriage return.
    static void linefeed();

    /// Turns all attributes and colours off: "\033[m".
    static void modesoff();
    /// Turns bold on: "\033[1m".
    static void boldmode();
    /// Turns low intensity on: "\033[2m".
    static void lowintensitymode();
    /// Turns underlining on: "\033[4m".
    static void underlinemode();
    /// Turns reverse video on: "\033[7m".
    static void reversemode();

    /// Erases the whole screen: "\033[2J".
    static void clearscreen();
    /// Erases from the top of the screen to the cursor: "\033[1J".
    static void clearscreenup();
    /// Erases from the cursor to the bottom of the screen: "\033[0J".
    static void clearscreendown();
    /// Erases the cursor's line: "\033[2K".
    static void clearline();
    /// Erases from the start of the line to the cursor: "\033[1K".
    static void clearlineleft();
    /// Erases from the cursor to the end of the line: "\033[0K".
    static void clearlineright();

    /// Deletes lines: "\033[P%uM".
    /// @param n  number of lines
    static void deleteline(unsigned char n);
    /// Inserts lines: "\033[P%uL".
    /// @param n  number of lines
    static void insertline(unsigned char n);

    /// Makes long lines go on at the next one: "\033[?7h".
    static void enablelinewrap();
    /// Cuts long lines at the right margin: "\033[?7l".
    static void disablelinewrap();

    /// Erases characters from the cursor on: "\033[P%uX".
    /// @param n  number of characters
    static void erasechar(unsigned char n);
    /// Deletes characters at the cursor: "\033[P%uP".
    /// @param n  number of characters
    static void deletechar(unsigned char n);
    /// Inserts blanks at the cursor: "\033[P%u@".
    /// @param n  number of characters
    static void insertchar(unsigned char n);

    /// Makes the whole screen scroll: "\033[r".
    static void enablescrolling();
    /// Makes only some rows scroll: "\033[%u;%ur".
    /// @param top     first row
    /// @param bottom  last row
    static void setscrollmargin(unsigned char top, unsigned char bottom);
    /// Scrolls up by a row: "\033D".
    static void scrollup();
    /// Scrolls down by a row: "\033M".
    static void scrolldown();

    /// Places the cursor in the top left corner: "\033[H".
    static void cursorhome();
    /// Moves the cursor up: "\033[%uA".
    /// @param n  number of rows
    static void cursorup(unsigned char n);
    /// Moves the cursor down: "\033[%uB".
    /// @param n  number of rows
    static void cursordown(unsigned char n);
    /// Moves the cursor right: "\033[%uC".
    /// @param n  number of columns
    static void cursorright(unsigned char n);
    /// Moves the cursor left: "\033[%uD".
    /// @param n  number of columns
    static void cursorleft(unsigned char n);

    /// Resets the terminal: "\033c".
    static void terminalreset();
    /// Shows the cursor: "\033[?25h".
    static void showcursor();
    /// Hides the cursor: "\033[?25l".
    static void hidecursor();
    /// Makes typed characters push the rest of the line: "\033[4h".
    static void insertmode();
    /// Makes typed characters replace those under the cursor: "\033[4l".
    static void overwritemode();
    /// Lets rows count from the top of the screen: "\033?6l".
    static void originmode();
};

#endif
