#include "nodevik/util/vt100.h"

#include <cstdio>

void VT100::set_color(unsigned char a, unsigned char f, unsigned char b) {
    std::printf("\033[%hhu;%hhu;%um", a, static_cast<unsigned char>(f + 30), b + 40U);
}

void VT100::set_fg_color(unsigned char c) {
    std::printf("\033[1;%hhum", static_cast<unsigned char>(c + 30));
}

void VT100::set_bg_color(unsigned char c) {
    std::printf("\033[%hhum", static_cast<unsigned char>(c + 40));
}

void VT100::goxy(unsigned char x, unsigned char y) {
    std::printf("\033[%hhu;%hhuH", y, x);
}

void VT100::linefeed() {
    std::putchar(13);
}

void VT100::modesoff() {
    std::printf("\033[m");
}

void VT100::boldmode() {
    std::printf("\033[1m");
}

void VT100::lowintensitymode() {
    std::printf("\033[2m");
}

void VT100::underlinemode() {
    std::printf("\033[4m");
}

void VT100::reversemode() {
    std::printf("\033[7m");
}

void VT100::clearscreen() {
    std::printf("\033[2J");
}

void VT100::clearscreenup() {
    std::printf("\033[1J");
}

void VT100::clearscreendown() {
    std::printf("\033[0J");
}

void VT100::clearline() {
    std::printf("\033[2K");
}

void VT100::clearlineleft() {
    std::printf("\033[1K");
}

void VT100::clearlineright() {
    std::printf("\033[0K");
}

void VT100::deleteline(unsigned char n) {
    std::printf("\033[P%uM", unsigned{n});
}

void VT100::insertline(unsigned char n) {
    std::printf("\033[P%uL", unsigned{n});
}

void VT100::enablelinewrap() {
    std::printf("\033[?7h");
}

void VT100::disablelinewrap() {
    std::printf("\033[?7l");
}

void VT100::erasechar(unsigned char n) {
    std::printf("\033[P%uX", unsigned{n});
}

void VT100::deletechar(unsigned char n) {
    std::printf("\033[P%uP", unsigned{n});
}

void VT100::insertchar(unsigned char n) {
    std::printf("\033[P%u@", unsigned{n});
}

void VT100::enablescrolling() {
    std::printf("\033[r");
}

void VT100::setscrollmargin(unsigned char top, unsigned char bottom) {
    std::printf("\033[%u;%ur", unsigned{top}, unsigned{bottom});
}

void VT100::scrollup() {
    std::printf("\033D");
}

void VT100::scrolldown() {
    std::printf("\033M");
}

void VT100::cursorhome() {
    std::printf("\033[H");
}

void VT100::cursorup(unsigned char n) {
    std::printf("\033[%uA", unsigned{n});
}

void VT100::cursordown(unsigned char n) {
    std::printf("\033[%uB", unsigned{n});
}

void VT100::cursorright(unsigned char n) {
    std::printf("\033[%uC", unsigned{n});
}

void VT100::cursorleft(unsigned char n) {
    std::printf("\033[%uD", unsigned{n});
}

void VT100::terminalreset() {
    std::printf("\033c");
}

void VT100::showcursor() {
    std::printf("\033[?25h");
}

void VT100::hidecursor() {
    std::printf("\033[?25l");
}

void VT100::insertmode() {
    std::printf("\033[4h");
}

void VT100::overwritemode() {
    std::printf("\033[4l");
}

void VT100::originmode() {
    std::printf("\033?6l");
}
