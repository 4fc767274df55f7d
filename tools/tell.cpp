#include "tools/tell.h"

#include <unistd.h>

#include <cstdio>

#include "tools/colour.h"

namespace nodevik_tool {

void tell(const std::string& message) {
    const bool is_terminal = takes_escapes(STDERR_FILENO);
    std::fprintf(stderr, "%snodevik: %s\n", is_terminal ? begin_line : "", message.c_str());
}

}  // namespace nodevik_tool
