#include "tools/tell.h"

#include <cstdio>

namespace nodevik_tool {

void tell(const std::string& message) {
    std::fprintf(stderr, "nodevik: %s\n", message.c_str());
}

}  // namespace nodevik_tool
