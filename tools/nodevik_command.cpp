// One command for a CANopen bus.

#include "tools/command.h"

int main(int argc, char** argv) {
    return nodevik_tool::run_command({argv + (argc > 0 ? 1 : 0), argv + argc});
}
