// Links against the library of the nodes the way a user's program does.

#include <cstdio>

#include "nodevik/nodes/objectvalue.h"

int main() {
    std::printf("%s\n", format_object(ObjectDataType::unsigned16, {0x00, 0x00}).c_str());
    return 0;
}
