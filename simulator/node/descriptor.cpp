#include "simulator/node/descriptor.h"

#include <unistd.h>

namespace node_simulator {

Descriptor::~Descriptor() {
    if (number_ >= 0) {
        close(number_);
    }
}

}  // namespace node_simulator
