#include "simulator/node/nodelink.h"

namespace node_simulator {

void replace_all(std::string& text, const std::string& what, const std::string& by) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
        text.replace(at, what.size(), by);
    }
}

}  // namespace node_simulator
