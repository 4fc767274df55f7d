// Shows keyboard, mouse and lamps live, straight from the input devices: a line that follows every change.
//
//     key_state
//
// F1, F2 and F3 toggle Num Lock, Caps Lock and Scroll Lock, Esc ends. Needs the right to the devices below
// /dev/input (root or the group input); run it on a text console or a terminal.

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "nodevik/arch.h"
#include "nodevik/inputevent.h"

namespace {

constexpr const char* usage = "usage: key_state";

struct LampKey {
    keymap key;
    unsigned lamp;
    const char* name;
};

constexpr LampKey lamp_keys[] = {{K_F1, 1, "Num"}, {K_F2, 2, "Caps"}, {K_F3, 4, "Scroll"}};

// What there is to see now, for example "keys 30 42 | mouse 12 -3 wheel 0 | buttons L | lamps Caps".
std::string state() {
    std::string line = "keys";
    for (unsigned code = 0; code < 256; ++code) {
        if (key(static_cast<unsigned char>(code)) != 0) {
            line += " " + std::to_string(code);
        }
    }
    line += " | mouse " + std::to_string(getmousex()) + " " + std::to_string(getmousey()) + " wheel " +
            std::to_string(getmousewheel()) + " | buttons";
    line += evmlbutton != 0 ? " L" : "";
    line += evmmbutton != 0 ? " M" : "";
    line += evmrbutton != 0 ? " R" : "";
    line += " | lamps";
    unsigned lamps = 0;
    getled(lamps);
    for (const LampKey& entry : lamp_keys) {
        line += (lamps & entry.lamp) != 0 ? std::string(" ") + entry.name : "";
    }
    return line;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) {
        const bool help = std::strcmp(argv[1], "--help") == 0;
        std::fprintf(help ? stdout : stderr, "%s\n", usage);
        return help ? 0 : 2;
    }
    if (isatty(STDIN_FILENO) == 0) {
        std::fputs("key_state: standard input is no terminal\n", stderr);
        return 1;
    }
    eventinit();
    std::string shown;
    while (keydown(K_ESC) == 0) {
        for (const LampKey& entry : lamp_keys) {
            if (keydown(entry.key) != 0) {
                negled(entry.lamp);
            }
        }
        const std::string now = state();
        if (now != shown) {
            std::printf("\r\033[K%s", now.c_str());
            std::fflush(stdout);
            shown = now;
        }
        m_sleep(5);
    }
    std::puts("");
    eventclose();
}
