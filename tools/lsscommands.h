/// @file
/// `nodevik lss`: node numbers and bit rates of slaves that are known by their identity (CiA 305).
///
/// Every command ends with all slaves waiting, also when it is interrupted or fails, and sends nothing but LSS requests.
/// One thing follows from a new node number: a node that had another one takes it when its communication is reset, and
/// so set_lss_node() sends that NMT command, to this node alone.

#ifndef TOOLS_LSSCOMMANDS_H
#define TOOLS_LSSCOMMANDS_H

#include <optional>
#include <string>
#include <vector>

#include "nodevik/nodes/lss.h"
#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// What the command line says about the search for slaves without a node number.
struct LssScanArguments {
    LssKnown known;              ///< numbers that are known beforehand
    unsigned int step_ms = 100;  ///< how long each of the up to 133 questions waits for answers
};

/// A slave, and what it shall be given.
struct LssTarget {
    std::optional<LssIdentity> identity;  ///< nothing: the only slave there is
    unsigned int value = 0;               ///< node number, or bit rate in kbit/s
    bool store = false;                   ///< has it store what it was given
};

/// What a command gives a slave.
struct LssValue {
    std::string name;  ///< "node number"; empty: nothing
    unsigned int lowest = 0;
    unsigned int highest = 0;
    void (*check)(unsigned int value) =
        nullptr;  ///< throws Failure for what is not right between; null: all is
};

/// Reads "VENDOR PRODUCT REVISION SERIAL" and a value, or the value alone; both without the value when there is none.
/// @param words  of the command line
/// @throws Failure  it is none of them
LssTarget parse_lss_target(const std::vector<std::string>& words, const LssValue& value);

/// Looks whether there is such a bit rate.
/// @param kbit  kbit/s
/// @throws Failure  there is none
void check_lss_bit_rate(unsigned int kbit);

/// Finds every slave that has no node number.
/// @throws Interrupted, Failure  as those below
ExitStatus scan_lss(const Session& session, const LssScanArguments& arguments);

/// Finds the slave without a node number that has the smallest identity.
ExitStatus fastscan_lss(const Session& session, const LssScanArguments& arguments);

/// Gives a slave a node number, and waits until it has started with it.
/// @throws Interrupted  a signal has come
/// @throws Failure      there is no such slave, it refuses, it did not start, or the bus cannot be used
ExitStatus set_lss_node(const Session& session, const LssTarget& target);

/// Gives a slave a bit rate, for its next start.
ExitStatus set_lss_bit_rate(const Session& session, const LssTarget& target);

/// Has a slave store its node number and bit rate.
ExitStatus store_lss(const Session& session, const LssTarget& target);

}  // namespace nodevik_tool

#endif
