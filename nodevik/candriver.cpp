#include "nodevik/candriver.h"

#include "nodevik/util/assertion.h"

CANdriver::CANdriver() = default;

CANdriver::~CANdriver() = default;

int CANdriver::read_wait(unsigned int& /*ID*/, unsigned int& /*length*/, unsigned char* /*data*/,
                         long /*timeout*/) {
    nodevik_assertion_failed("nodevik/candriver", "1 == 2");
}
