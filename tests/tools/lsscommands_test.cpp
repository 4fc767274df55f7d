// nodevik lss: what slaves are told, by node-simulator's and by slaves that lie, are late, repeat themselves or fall
// silent; and that nothing else is sent.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "tests/tools/simulatedbus.h"

namespace {

using Words = std::vector<std::string>;

// A request by its first bytes.
std::string lss(std::string bytes) {
    while (bytes.size() < 23) {
        bytes += " 00";
    }
    return "7e5 8 " + bytes;
}

Frames operator+(Frames left, const Frames& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// The slave of a simulator whose serial number is 100.
const Words identity{"0", "1025", "65536", "100"};
const std::string identity_line = "0x00000000 0x00000401 0x00010000 0x00000064";
const std::string identity_keys = "{\"vendor\":0,\"product\":1025,\"revision\":65536,\"serial\":100,";
const Frames selection{lss("04 00"), lss("40"), lss("41 01 04"), lss("42 00 00 01"), lss("43 64")};
const Frames inquiry{lss("04 01"), lss("5a"), lss("5b"), lss("5c"), lss("5d")};
const std::string end_of_it = lss("04 00");

Words words(const Words& command, const Words& more = {}) {
    Words result{"--timeout", "10000", "lss"};
    result.insert(result.end(), command.begin(), command.end());
    result.insert(result.end(), more.begin(), more.end());
    return result;
}

// A search, which ends when nobody answers for a while.
Words search(const Words& command) {
    Words result = words(command);
    result[1] = "600";
    return result;
}

// "lss" with a command, the slave and more.
Words named(const std::string& command, const Words& more = {}) {
    Words all = identity;
    all.insert(all.begin(), command);
    return words(all, more);
}

SimulatedBus simulated(const Words& options) {
    return {NODEVIK, NODE_SIMULATOR, options};
}

// The slave of the test itself: it answers what a right one does, unless a test has it do something else.
class ScriptedSlave : public testing::Test {
protected:
    using Answers = std::vector<std::string>;

    ScriptedSlave() {
        bus.answer = [this](const ScriptedBus::Frame& frame) {
            std::vector<ScriptedBus::Frame> frames;
            if (frame.first == 0x7E5) {
                const auto command = static_cast<unsigned char>(frame.second.at(0));
                for (const std::string& answer : tamper(command, answers_to(frame.second))) {
                    frames.emplace_back(0x7E4, answer);
                }
                if (command == 0x04 && starts_as != 0) {
                    frames.emplace_back(0x700 + starts_as, std::string(1, '\0'));
                }
            }
            return frames;
        };
    }

    static std::string answer(const std::string& bytes) {
        std::string frame = bytes;
        frame.resize(8, '\0');
        return frame;
    }

    Answers answers_to(const std::string& request) const {
        switch (static_cast<unsigned char>(request.at(0))) {
            case 0x43:
                return {answer("\x44")};
            case 0x5A:
            case 0x5B:
            case 0x5C:
                return {request};
            case 0x5D:
                return {answer("\x5D\x64")};
            case 0x5E:
                return {answer(std::string("\x5E") + static_cast<char>(active))};
            case 0x11:
            case 0x13:
            case 0x17:
                return {answer(request.substr(0, 1))};
            case 0x51:
                return {answer("\x4F")};
            default:
                return {};
        }
    }

    // With the identity 0 0 0 100 ahead of a value.
    static Words own(const std::string& command, const Words& more) {
        Words all{command, "0", "0", "0", "100"};
        all.insert(all.end(), more.begin(), more.end());
        return words(all);
    }

    ScriptedBus bus{NODEVIK};
    unsigned active = 0xFF;   // the number that it tells
    unsigned starts_as = 12;  // whose boot-up it sends when it is sent waiting; 0 none
    std::function<Answers(unsigned command, Answers answers)> tamper = [](unsigned, Answers answers) {
        return answers;
    };
};

const std::string own_line = "0x00000000 0x00000000 0x00000000 0x00000064";

}  // namespace

TEST(LssNode, GivesASlaveWithoutANumberOneAndResetsNobody) {
    const SimulatedBus bus = simulated({"--nodes", "5", "--unconfigured", "100,200"});
    expect_done(bus.run(named("node", {"12"})), identity_line + " 12\n");
    EXPECT_EQ(bus.heard(), selection + Frames({lss("5e"), lss("11 0c"), end_of_it}));
    EXPECT_EQ(bus.run({"sdo", "read", "12", "0x1018:4", "--type", "u32"}).out, "0x1018:4  100\n");
}

TEST(LssNode, ResetsTheNodeThatHadANumberAndSaysSo) {
    const SimulatedBus bus = simulated({"--nodes", "5", "--unconfigured", "100"});
    EXPECT_EQ(bus.run(named("node", {"12"})).status, 0);
    const std::size_t before = bus.heard().size();
    const ChildResult result = bus.run(named("node", {"13", "--store", "--json"}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              identity_keys + "\"node\":13,\"before\":12,\"stored\":true,\"reset\":true,\"booted\":true}\n");
    EXPECT_EQ(result.err, "nodevik: the communication of node 12 was reset, so that it becomes node 13\n");
    Frames frames = bus.heard();
    frames.erase(frames.begin(), frames.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(frames, selection + Frames({lss("5e"), lss("11 0d"), lss("17"), end_of_it, "000 2 82 0c"}));
}

TEST(LssNode, LeavesANodeAloneThatHasTheNumber) {
    const SimulatedBus bus = simulated({"--nodes", "100"});
    expect_done(
        bus.run(named("node", {"100", "--json"})),
        identity_keys + "\"node\":100,\"before\":100,\"stored\":false,\"reset\":false,\"booted\":false}\n");
    EXPECT_EQ(bus.heard(), selection + Frames({lss("5e"), lss("11 64"), end_of_it}));
}

TEST(LssNode, MeansTheOnlySlaveWhenNoneIsNamed) {
    const SimulatedBus bus = simulated({"--nodes", "none", "--unconfigured", "100"});
    expect_done(bus.run(words({"node", "12"})), identity_line + " 12\n");
    EXPECT_EQ(bus.heard(), inquiry + Frames({lss("5e"), lss("11 0c"), end_of_it}));
}

TEST(LssNode, SetsNothingWhenSeveralSlavesAreMeant) {
    const SimulatedBus bus = simulated({"--nodes", "5,6"});
    expect_failure(bus.run(words({"node", "12"})), 2,
                   "several slaves have answered; name one by VENDOR PRODUCT REVISION SERIAL");
    EXPECT_EQ(bus.heard(), inquiry + Frames({end_of_it}));
}

TEST(LssNode, EndsWith3WhenThereIsNoSuchSlave) {
    const SimulatedBus bus = simulated({"--nodes", "5"});
    expect_failure(bus.run({"--timeout", "50", "lss", "node", "0", "1025", "65536", "100", "12"}), 3,
                   "no slave " + identity_line + " has answered within 50 ms");
    EXPECT_EQ(bus.heard(), selection + Frames({end_of_it}));
}

TEST(LssNode, EndsWith3WhenThereIsNoSlaveAtAll) {
    ScriptedBus bus(NODEVIK);
    expect_failure(bus.run({"--timeout", "50", "lss", "node", "12"}), 3,
                   "no LSS slave has answered within 50 ms");
    EXPECT_EQ(bus.heard, (Frames{lss("04 01"), lss("5a"), end_of_it}));
}

TEST(LssBitRate, IsSetByItsIndexInTheTable) {
    const SimulatedBus bus = simulated({"--nodes", "100"});
    const std::vector<std::pair<std::string, std::string>> rates{
        {"1000", "00"}, {"125", "04"}, {"50", "06"}, {"10", "08"}};
    Frames frames;
    for (const auto& [rate, index] : rates) {
        expect_done(bus.run(named("bitrate", {rate})), identity_line + " " + rate + "\n");
        frames = frames + selection + Frames({lss("13 00 " + index), end_of_it});
    }
    EXPECT_EQ(bus.heard(), frames);
    expect_done(bus.run(named("bitrate", {"250", "--store", "--json"})),
                identity_keys + "\"kbit\":250,\"stored\":true}\n");
    EXPECT_EQ(bus.heard(), frames + selection + Frames({lss("13 00 03"), lss("17"), end_of_it}));
}

TEST(LssStore, HasTheSlaveStore) {
    const SimulatedBus bus = simulated({"--nodes", "100"});
    expect_done(bus.run(named("store")), identity_line + "\n");
    expect_done(bus.run(words({"store", "--json"})), identity_keys + "\"stored\":true}\n");
    EXPECT_EQ(bus.heard(),
              selection + Frames({lss("17"), end_of_it}) + inquiry + Frames({lss("17"), end_of_it}));
}

TEST(LssFastscan, FindsTheSlaveWhoseNumbersAreKnownWithFiveQuestions) {
    const SimulatedBus bus = simulated({"--nodes", "5", "--unconfigured", "100,200"});
    expect_done(bus.run(words({"fastscan", "--vendor", "0", "--product", "0x401", "--revision", "65536",
                               "--serial", "100", "--step", "60"})),
                identity_line + "\n");
    EXPECT_EQ(bus.heard(), (Frames{lss("04 00"), lss("51 00 00 00 00 80"), lss("51 00 00 00 00 00 00 01"),
                                   lss("51 01 04 00 00 00 01 02"), lss("51 00 00 01 00 00 02 03"),
                                   lss("51 64 00 00 00 00 03 00"), end_of_it}));
}

TEST(LssScan, FindsEverySlaveWithoutANumberAndLeavesThemWithoutOne) {
    const SimulatedBus bus = simulated({"--nodes", "5", "--unconfigured", "100,200"});
    const Words command =
        search({"scan", "--vendor", "0", "--product", "1025", "--revision", "0x10000", "--step", "30"});
    expect_done(bus.run(command), identity_line + "\n0x00000000 0x00000401 0x00010000 0x000000C8\n");
    for (const std::string& frame : bus.heard()) {
        EXPECT_TRUE(frame.rfind("7e5 8 51 ", 0) == 0 || frame == lss("04 00")) << frame;
    }
    EXPECT_EQ(bus.heard().back(), end_of_it);
    EXPECT_EQ(bus.simulator().command("emergency 12 0x8130").rfind("error", 0), 0U);  // there is no node 12
}

TEST(LssScan, TellsTwinsOnce) {
    const SimulatedBus bus = simulated({"--nodes", "none", "--unconfigured", "100,100"});
    const ChildResult result = bus.run(search({"scan", "--vendor", "0", "--product", "1025", "--revision",
                                               "65536", "--serial", "100", "--step", "200", "--json"}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, identity_keys + "\"duplicate\":true}\n");
    EXPECT_EQ(result.err, "nodevik: more than one slave is " + identity_line + "\n");
}

TEST(LssScan, EndsWith3WhenEverySlaveHasANumber) {
    const SimulatedBus bus = simulated({"--nodes", "5,6"});
    for (const char* command : {"scan", "fastscan"}) {
        expect_failure(bus.run({"--timeout", "50", "lss", command}), 3,
                       "no LSS slave without a node number has answered within 50 ms");
    }
    const Frames once{lss("04 00"), lss("51 00 00 00 00 80"), end_of_it};
    EXPECT_EQ(bus.heard(), once + once);
}

TEST_F(ScriptedSlave, ThatIsRightIsGivenItsNumber) {
    expect_done(bus.run(own("node", {"12"})), own_line + " 12\n");
    EXPECT_EQ(bus.heard, (Frames{lss("04 00"), lss("40"), lss("41"), lss("42"), lss("43 64"), lss("5e"),
                                 lss("11 0c"), lss("04 00")}));
}

TEST_F(ScriptedSlave, ThatRefusesEndsTheCommandWith1) {
    tamper = [](unsigned command, Answers answers) {
        return command == 0x11 || command == 0x13
                   ? Answers{answer(std::string(1, static_cast<char>(command)) + "\x01")}
                   : std::move(answers);
    };
    expect_failure(bus.run(own("node", {"12"})), 1, "the slave refuses the node number 12: error 1");
    EXPECT_EQ(bus.heard.back(), end_of_it);
    expect_failure(bus.run(own("bitrate", {"800"})), 1, "the slave refuses the bit rate 800 kbit/s: error 1");
    tamper = [](unsigned command, Answers answers) {
        return command == 0x17 ? Answers{answer("\x17\xFF\x07")} : std::move(answers);
    };
    expect_failure(bus.run(own("store", {})), 1, "the slave refuses to store: error 7 of the manufacturer's");
    EXPECT_EQ(bus.heard.back(), end_of_it);
}

TEST_F(ScriptedSlave, ThatFallsSilentEndsTheCommandWith3) {
    tamper = [](unsigned command, Answers answers) {
        return command == 0x13 ? Answers{} : std::move(answers);
    };
    Words command = own("bitrate", {"500"});
    command[1] = "50";
    expect_failure(bus.run(command), 3,
                   "the slave has fallen silent: no answer to the bit rate 500 kbit/s within 50 ms");
    EXPECT_EQ(bus.heard.back(), end_of_it);
}

TEST_F(ScriptedSlave, ThatAnswersSomethingElseHasNotAnswered) {
    tamper = [](unsigned command, Answers answers) {
        return command == 0x43 ? Answers{answer("\x45"), "\x44", answer("\x43")} : std::move(answers);
    };
    Words command = own("node", {"12"});
    command[1] = "50";
    EXPECT_EQ(bus.run(command).status, 3);
    EXPECT_EQ(bus.heard, (Frames{lss("04 00"), lss("40"), lss("41"), lss("42"), lss("43 64"), end_of_it}));
}

TEST_F(ScriptedSlave, ThatAnswersTwiceMayBeTwo) {
    tamper = [](unsigned command, Answers answers) {
        return command == 0x43 ? Answers{answer("\x44"), answer("\x44")} : std::move(answers);
    };
    expect_failure(bus.run(own("node", {"12"})), 1, "more than one slave is " + own_line);
    EXPECT_EQ(bus.heard.back(), end_of_it);
    tamper = [](unsigned command, Answers answers) {
        return command == 0x11 ? Answers{answer("\x11"), answer("\x11")} : std::move(answers);
    };
    expect_failure(bus.run(own("node", {"12"})), 1, "more than one slave has answered to the node number 12");
    EXPECT_EQ(bus.heard.back(), end_of_it);
}

TEST_F(ScriptedSlave, ThatAnswersTooLateIsNotTakenForAnother) {
    bool is_late = false;
    tamper = [&is_late](unsigned command, Answers answers) {
        if (command == 0x43) {
            is_late = true;
            return Answers{};
        }
        return answers;
    };
    bus.meanwhile = [&] {
        if (is_late && bus.heard.back() == end_of_it) {
            bus.send({0x7E4, answer("\x44")});
            is_late = false;
        }
    };
    Words command = own("node", {"12"});
    command[1] = "50";
    expect_failure(bus.run(command), 3, "no slave " + own_line + " has answered within 50 ms");
}

TEST_F(ScriptedSlave, ThatDoesNotTellItsNumberIsNotReset) {
    active = 5;
    tamper = [](unsigned command, Answers answers) {
        return command == 0x5E ? Answers{} : std::move(answers);
    };
    Words command = own("node", {"12", "--json"});
    command[1] = "300";
    const ChildResult result = bus.run(command);
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("\"node\":12,\"before\":null,\"stored\":false,\"reset\":false,"),
              std::string::npos)
        << result.out;
    EXPECT_EQ(result.err,
              "nodevik: the slave does not tell its present number; it takes the new one when its "
              "communication is reset: 'nodevik nmt reset-comm'\n");
    EXPECT_EQ(bus.heard.back(), end_of_it);
}

TEST_F(ScriptedSlave, ThatDoesNotStartEndsTheCommandWith3) {
    starts_as = 13;  // another node does
    const ChildResult result = bus.run(own("node", {"12"}));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, own_line + " 12\n");
    EXPECT_EQ(result.err, "nodevik: node 12 has not started within 2000 ms: it sent no boot-up\n");
    EXPECT_EQ(bus.heard.back(), end_of_it);
}

TEST_F(ScriptedSlave, ThatNeverGoesIntoConfigurationEndsTheScan) {
    const ChildResult result = bus.run(search(
        {"scan", "--vendor", "1", "--product", "2", "--revision", "3", "--serial", "4", "--step", "50"}));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "0x00000001 0x00000002 0x00000003 0x00000004\n");
    EXPECT_EQ(result.err,
              "nodevik: the slave 0x00000001 0x00000002 0x00000003 0x00000004 does not go into "
              "configuration: those behind it cannot be found\n");
    EXPECT_EQ(bus.heard.back(), end_of_it);
}

TEST_F(ScriptedSlave, ThatDeniesItsNumbersEndsTheScanAfterThreeMoreAttempts) {
    const auto answers = bus.answer;
    bus.answer = [&answers](const ScriptedBus::Frame& frame) {
        const bool is_first = frame.second.at(5) == '\x80';
        return is_first ? answers(frame) : std::vector<ScriptedBus::Frame>();
    };
    expect_failure(bus.run(words({"scan", "--step", "1"})), 3,
                   "a slave has answered and then denied its numbers, again and again; try a longer --step");
    EXPECT_EQ(std::count(bus.heard.begin(), bus.heard.end(), lss("51 00 00 00 00 80")), 4);
    EXPECT_EQ(bus.heard.back(), end_of_it);
}

TEST_F(ScriptedSlave, IsSentWaitingWhenTheCommandIsInterrupted) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        tamper = [this, number](unsigned command, Answers answers) {
            if (command == 0x13) {
                bus.signal(number);
                return Answers{};
            }
            return answers;
        };
        const ChildResult result = bus.run(own("bitrate", {"500"}));
        EXPECT_EQ(result.status, 130);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(bus.heard.back(), end_of_it);
    }
}

TEST_F(ScriptedSlave, ThatWasFoundIsToldBeforeTheScanIsInterrupted) {
    bool is_found = false;
    const auto answers = bus.answer;
    bus.answer = [&](const ScriptedBus::Frame& frame) {
        if (is_found) {  // it is in configuration
            if (frame.second.at(5) == '\x80') {
                bus.signal(SIGTERM);
            }
            return std::vector<ScriptedBus::Frame>();
        }
        is_found = frame.second.at(6) == '\x03';
        return answers(frame);
    };
    const ChildResult result = bus.run(search(
        {"scan", "--vendor", "1", "--product", "2", "--revision", "3", "--serial", "4", "--step", "50"}));
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.out, "0x00000001 0x00000002 0x00000003 0x00000004\n");
    EXPECT_EQ(bus.heard.back(), end_of_it);
}

TEST_F(ScriptedSlave, IsSentWaitingWhenNobodyReadsTheResults) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const ChildResult result = bus.run(own("store", {}), ends[1]);
    close(ends[1]);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(bus.heard.back(), end_of_it);
}

TEST(Lss, RefusesWhatItCannotRead) {
    ScriptedBus bus(NODEVIK);
    const std::string numbers = "right are VENDOR PRODUCT REVISION SERIAL";
    const std::vector<std::pair<Words, std::string>> wrong{
        {{},
         "a command is missing; right are scan, fastscan, node, bitrate, store; 'nodevik lss --help' tells "
         "more"},
        {{"node"},
         numbers +
             " and the node number, or the node number alone when there is only one slave; not 0 words"},
        {{"node", "1", "2"},
         numbers +
             " and the node number, or the node number alone when there is only one slave; not 2 words"},
        {{"bitrate", "1", "2", "3", "4"},
         numbers + " and the bit rate, or the bit rate alone when there is only one slave; not 4 words"},
        {{"store", "1"}, numbers + ", or nothing when there is only one slave; not 1 words"},
        {{"store", "1", "2", "3", "4294967296"},
         "'4294967296' is no number of an identity; right are 0 to 4294967295, also as 0x00000401"},
        {{"node", "0"}, "'0' is no node number; right are 1 to 127"},
        {{"node", "1", "2", "3", "4", "128"}, "'128' is no node number; right are 1 to 127"},
        {{"bitrate", "0"}, "'0' is no bit rate; right are 1 to 1000"},
        {{"bitrate", "100"},
         "100 kbit/s is no bit rate of LSS; right are 10, 20, 50, 125, 250, 500, 800 and 1000"},
        {{"scan", "--vendor", "x"},
         "--vendor: 'x' is no number from 0 to 4294967295; 'nodevik lss scan --help' tells more"},
        {{"fastscan", "--step", "0"},
         "--step: Value 0 not in range 1 to 60000; 'nodevik lss fastscan --help' tells more"},
        {{"scan", "5"}, "'5' is one argument too many; 'nodevik lss scan --help' tells more"}};
    for (const auto& [command, message] : wrong) {
        expect_failure(bus.run(words(command)), 2, message);
    }
    EXPECT_EQ(bus.heard, Frames());
}
