// Links against the library the way a user's program does.

#include <cstdio>

#include "nodevik/canopen.h"
#include "nodevik/pdo.h"
#include "nodevik/udpdriver.h"

int main() {
    CCANopen master;
    udpDriver driver;
    master.load_driver(driver);
    PDO inputs(0x181);
    unsigned short speed = 0;
    inputs.mapcopy(0, speed);
    std::printf("%d\n", master.add_tpdo(inputs));
    return 0;
}
