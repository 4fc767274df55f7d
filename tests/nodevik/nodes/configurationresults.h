/// @file
/// What became of the objects of a configuration, as lines to be compared.

#ifndef TESTS_NODEVIK_NODES_CONFIGURATIONRESULTS_H
#define TESTS_NODEVIK_NODES_CONFIGURATIONRESULTS_H

#include <cstdio>
#include <string>
#include <vector>

#include "nodevik/nodes/nodeconfiguration.h"

/// A line for each object: "1800:1 written".
inline std::vector<std::string> results(const ConfigurationReport& report) {
    std::vector<std::string> lines;
    for (const ConfigurationItem& item : report.items) {
        char text[80];
        std::snprintf(text, sizeof text, "%04X:%u %s", item.index, item.subindex,
                      configuration_result_name(item.result));
        lines.emplace_back(text);
    }
    return lines;
}

#endif
