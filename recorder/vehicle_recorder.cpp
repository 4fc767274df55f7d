// The black box of the vehicle's line.

#include "recorder/command.h"

int main(int argc, char** argv) {
    return vehicle_recorder::run_command({argv + (argc > 0 ? 1 : 0), argv + argc});
}
