// The program nodevik against node-simulator over UDP. What was sent is told by the simulator's log, and what is
// printed by the program's two outputs.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>

#include "tests/support/candatagram.h"
#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/pseudoterminal.h"
#include "tests/support/runningprogram.h"
#include "tests/support/temporaryfile.h"
#include "tests/tools/simulatedbus.h"

namespace {

const char* const description_text =
    "[DeviceInfo]\nVendorName=maker\n"
    "[MandatoryObjects]\nSupportedObjects=1\n1=0x1000\n"
    "[1000]\nParameterName=Device type\nObjectType=7\nDataType=7\nAccessType=ro\nDefaultValue=0x191\n"
    "[ManufacturerObjects]\nSupportedObjects=4\n1=0x2000\n2=0x2001\n3=0x2002\n4=0x2003\n"
    "[2000]\nParameterName=Speed\nObjectType=7\nDataType=3\nAccessType=rw\nLowLimit=-100\nHighLimit=100\n"
    "[2001]\nParameterName=Inputs\nObjectType=8\nSubNumber=3\n"
    "[2001sub0]\nParameterName=Count\nObjectType=7\nDataType=5\nAccessType=ro\nDefaultValue=2\n"
    "[2001sub1]\nParameterName=First\nObjectType=7\nDataType=5\nAccessType=rw\nDefaultValue=7\n"
    "[2001sub2]\nParameterName=Second\nObjectType=7\nDataType=5\nAccessType=rw\nDefaultValue=8\n"
    "[2002]\nParameterName=Program\nObjectType=2\nDataType=15\nAccessType=rw\n"
    "[2003]\nParameterName=Total\nObjectType=7\nDataType=27\nAccessType=rw\n";

const std::string all_commands =
    "sdo, nmt, send, sync, nodes, scan, monitor, record, decode, replay, lss, eds, configure, pdo, dump";

// A simulator with nodes 5 and 6, and what it has heard.
class Command : public testing::Test {
protected:
    Command() {
        description_.write(description_text);
        bus_ = std::make_unique<SimulatedBus>(
            NODEVIK, NODE_SIMULATOR,
            std::vector<std::string>{"--nodes", "5,6", "--eds", "6=" + description_.path()});
    }

    std::string bus() const { return bus_->address(); }
    std::vector<std::string> words(const std::vector<std::string>& more) const { return bus_->words(more); }
    ChildResult run(const std::vector<std::string>& more) const { return bus_->run(more); }
    ChildResult run_patiently(const std::vector<std::string>& more) const {
        return bus_->run_patiently(more);
    }
    Frames heard() const { return bus_->heard(); }
    const std::string& description() const { return description_.path(); }

private:
    TemporaryFile description_;
    std::unique_ptr<SimulatedBus> bus_;
};

// Whether a program has a handler for a signal (proc(5)).
bool catches(pid_t process, int signal) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigCgt:", 0) == 0) {
            return (std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1) != 0;
        }
    }
    return false;
}

// Turns the process into a program.
[[noreturn]] void become(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(99);
}

}  // namespace

TEST_F(Command, ReadsAnEntryAndSendsNothingElse) {
    expect_done(run({"sdo", "read", "5", "0x1018:2", "--segments"}), "0x1018:2  01040000  1025\n");
    EXPECT_EQ(heard(), (Frames{"605 8 40 18 10 02 00 00 00 00"}));
}

TEST_F(Command, ReadsByAType) {
    expect_done(run({"sdo", "read", "5", "0x1018:2", "--type", "u32"}), "0x1018:2  1025\n");
    expect_done(run({"sdo", "read", "5", "0x1008", "--type", "str"}), "0x1008:0  node-simulator\n");
    expect_done(run({"sdo", "read", "5", "0x1009:0", "--type", "oct"}), "simulated hardware");
    expect_done(run({"sdo", "read", "5", "0x100A:0", "--type", "hex"}), "0x100A:0  312E30\n");
}

TEST_F(Command, ReadsEveryEntryOfAnObjectThatHasSubindices) {
    expect_done(run({"sdo", "read", "5", "0x1018", "--type", "u32"}),
                "0x1018:0  4\n0x1018:1  0\n0x1018:2  1025\n0x1018:3  65536\n0x1018:4  5\n");
    for (const std::string& frame : heard()) {
        EXPECT_EQ(frame.rfind("605 8 a4 18 10 0", 0), 0U) << frame;
    }
}

TEST_F(Command, ReadsOneValueOfAnObjectThatHasNone) {
    expect_done(run({"sdo", "read", "5", "0x1001"}), "0x1001:0  00  0\n");
    expect_done(run({"sdo", "write", "5", "0x100D", "3", "--type", "u8"}), "");
    expect_done(run({"sdo", "read", "5", "0x100D"}), "0x100D:0  03  3\n");
}

TEST_F(Command, ReadsByTheNamesAndTypesOfADescription) {
    const std::string eds = description();
    expect_done(run({"--eds", eds, "sdo", "write", "6", "speed", "-100"}), "");
    expect_done(run({"--eds", "6=" + eds, "sdo", "read", "6", "speed"}), "0x2000:0  -100  Speed\n");
    expect_done(run({"--eds", eds, "sdo", "read", "6", "inputs"}),
                "0x2001:0  2  Inputs/Count\n0x2001:1  7  Inputs/First\n0x2001:2  8  Inputs/Second\n");
}

TEST_F(Command, TakesOneFileForADescription) {
    expect_done(run({"sdo", "read", "6", "--eds", description(), "0x2001:1"}), "0x2001:1  7  Inputs/First\n");
    expect_done(run({"sdo", "read", "--eds", "5=" + description(), "--eds", description(), "6", "0x2001:2"}),
                "0x2001:2  8  Inputs/Second\n");
}

TEST_F(Command, TellsValuesAsJson) {
    expect_done(
        run({"--json", "sdo", "read", "5", "0x1018:2", "--type", "u32"}),
        "{\"node\":5,\"index\":\"0x1018\",\"sub\":2,\"type\":\"u32\",\"value\":1025,\"hex\":\"01040000\"}\n");
    expect_done(run({"sdo", "read", "5", "0x100A", "--json"}),
                "{\"node\":5,\"index\":\"0x100A\",\"sub\":0,\"type\":\"hex\",\"value\":3157553,\"hex\":"
                "\"312e30\"}\n");
    expect_done(run({"--json", "--eds", description(), "sdo", "write", "6", "Total", "18446744073709551615"}),
                "{\"node\":6,\"index\":\"0x2003\",\"sub\":0,\"type\":\"u64\",\"value\":18446744073709551615,"
                "\"hex\":\"ffffffffffffffff\",\"name\":\"Total\"}\n");
}

TEST_F(Command, WritesAValueOfItsTypesSize) {
    expect_done(run({"sdo", "write", "5", "0x1017", "500", "--type", "u16"}), "");
    EXPECT_EQ(heard(), (Frames{"605 8 2b 17 10 00 f4 01 00 00"}));
}

TEST_F(Command, TakesWhatFollowsTheObjectForTheValue) {
    expect_done(run({"sdo", "write", "5", "0x1017", "-5", "--type", "i16"}), "");
    expect_done(run({"sdo", "--timeout", "900", "write", "--type=i16", "5", "0x1017", "-6"}), "");
    expect_done(run({"sdo", "write", "5", "0x1017", "-h", "--type", "oct"}), "");
    expect_done(run({"--quiet", "sdo", "write", "--segments", "5", "0x1017", "-q", "--type", "oct"}), "");
    EXPECT_EQ(heard(), (Frames{"605 8 2b 17 10 00 fb ff 00 00", "605 8 2b 17 10 00 fa ff 00 00",
                               "605 8 2b 17 10 00 2d 68 00 00", "605 8 2b 17 10 00 2d 71 00 00"}));
}

TEST_F(Command, RefusesAValueThatIsNoneBeforeAnythingIsSent) {
    expect_failure(run({"sdo", "write", "5", "0x1017", "65536", "--type", "u16"}), 2,
                   "the value '65536' does not fit UNSIGNED16");
    expect_failure(run({"--eds", description(), "sdo", "write", "6", "speed", "101"}), 2,
                   "the value '101' is above the high limit 100");
    expect_failure(
        run({"sdo", "write", "5", "0x1017", "1"}), 2,
        "the type of the value is not known; name it with --type, such as --type u16, or a description "
        "with --eds");
    expect_failure(run({"--eds", description(), "sdo", "write", "6", "inputs", "1"}), 2,
                   "'inputs' has several entries; name one, such as 0x2001:1");
    EXPECT_EQ(heard(), Frames{});
}

TEST_F(Command, MovesLongValuesFromAndToFiles) {
    std::string program;
    for (int i = 0; i < 5000; ++i) {
        program += static_cast<char>(i * 7);
    }
    const TemporaryFile in;
    in.write(program);
    const TemporaryFile out;
    for (const char* mode : {"--block", "--segments"}) {
        out.write("");
        expect_done(run({"sdo", "write", "6", "0x2002", "--in", in.path(), mode}), "");
        expect_done(run({"sdo", "read", "6", "0x2002:0", "--out", out.path(), mode}), "");
        EXPECT_EQ(out.content(), program) << mode;
    }
    out.write("");
    in.write("0A1B\n");
    expect_done(run({"sdo", "write", "6", "0x2002", "--in", in.path(), "--type", "hex"}), "");
    expect_done(run({"sdo", "read", "6", "0x2002:0", "--out", out.path()}), "");
    EXPECT_EQ(out.content(), "\x0A\x1B");
    expect_done(run({"sdo", "read", "6", "0x2002:0", "--out", out.path(), "--type", "hex"}), "");
    EXPECT_EQ(out.content(), "0A1B\n");
}

TEST_F(Command, PutsWhatIsForAFileToStandardOutputWhenThatIsTheFile) {
    for (const std::string file : {"/dev/stdout", "/dev/fd/1", "/proc/self/fd/1"}) {
        expect_done(run_patiently({"sdo", "read", "5", "0x1008", "--out", file}), "node-simulator");
    }
    const ChildResult dcf = run_program({NODEVIK, "eds", "dcf", description(), "5", "--out", "/dev/stdout"});
    EXPECT_NE(dcf.out.find("[DeviceComissioning]\nNodeID=5\n"), std::string::npos) << dcf.out;
    const TemporaryFile file;
    file.write("before\n");
    const std::string line =
        "exec \"$0\" --udp \"$1\" --timeout 60000 sdo read 5 0x1008 --out /dev/stdout >> \"$2\"";
    expect_done(run_program({"/bin/sh", "-c", line, NODEVIK, bus(), file.path()}), "");
    EXPECT_EQ(file.content(), "before\nnode-simulator");
}

TEST_F(Command, DoesNotWriteAFileWithoutItsContent) {
    const TemporaryFile there;
    there.write("before");
    EXPECT_EQ(run({"sdo", "read", "5", "0x1018:9", "--out", there.path()}).status, 1);
    EXPECT_EQ(there.content(), "before");
    const std::string missing = there.path() + ".new";
    EXPECT_EQ(run({"sdo", "read", "5", "0x1018:9", "--out", missing}).status, 1);
    EXPECT_NE(access(missing.c_str(), F_OK), 0);
}

TEST_F(Command, EndsWith5WhenAFileIsBad) {
    expect_failure(run({"sdo", "write", "5", "0x1017", "--in", "/no/such"}), 5,
                   "/no/such cannot be read: No such file or directory");
    expect_failure(run({"sdo", "read", "5", "0x1017", "--out", "/no/such"}), 5,
                   "/no/such cannot be written: No such file or directory");
    expect_failure(run({"sdo", "read", "5", "0x1017:0", "--out", "/dev/full"}), 5,
                   "/dev/full cannot be written: No space left on device");
    EXPECT_EQ(run({"--eds", "/no/such", "sdo", "read", "5", "speed"}).status, 5);
    const TemporaryFile huge;
    ASSERT_EQ(truncate(huge.path().c_str(), off_t{1} << 40), 0);
    expect_failure(run({"sdo", "write", "5", "0x2000", "--in", huge.path()}), 5,
                   huge.path() + " cannot be read: File too large");
    const ChildResult full = run_program({"/bin/sh", "-c", "exec \"$0\" \"$@\" > /dev/full", NODEVIK, "--udp",
                                          bus(), "sdo", "read", "5", "0x1017"});
    expect_failure(full, 5, "standard output takes nothing more: No space left on device");
}

TEST_F(Command, EndsWith1WhenTheNodeRefuses) {
    expect_failure(run({"sdo", "read", "5", "0x1018:9"}), 1,
                   "node 5, 0x1018:9: the node refuses: Sub-index does not exist. (0x06090011)");
    expect_failure(run({"sdo", "write", "5", "0x1018:1", "1", "--type", "u32"}), 1,
                   "node 5, 0x1018:1: the node refuses: Attempt to write a read only object. (0x06010002)");
}

TEST_F(Command, TellsEachEntryThatTheNodeRefuses) {
    const TemporaryFile eds;
    eds.write(
        "[1018]\nParameterName=Identity\nObjectType=9\nSubNumber=3\n"
        "[1018sub2]\nParameterName=Product\nObjectType=7\nDataType=7\nAccessType=ro\n"
        "[1018sub8]\nParameterName=Eight\nObjectType=7\nDataType=7\nAccessType=ro\n"
        "[1018sub9]\nParameterName=Nine\nObjectType=7\nDataType=7\nAccessType=ro\n");
    const ChildResult result = run_patiently({"--eds", eds.path(), "sdo", "read", "5", "Identity"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "0x1018:2  1025  Identity/Product\n");
    EXPECT_EQ(result.err,
              "nodevik: node 5, 0x1018:8: the node refuses: Sub-index does not exist. (0x06090011)\n"
              "nodevik: node 5, 0x1018:9: the node refuses: Sub-index does not exist. (0x06090011)\n");
}

TEST_F(Command, EndsWith2WhenTheCommandLineIsWrong) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> wrong{
        {{}, "a command is missing; right are " + all_commands + "; 'nodevik --help' tells more"},
        {{"foo"},
         "'foo' is none of its commands; right are " + all_commands + "; 'nodevik --help' tells more"},
        {{"sdo"}, "a command is missing; right are read, write; 'nodevik sdo --help' tells more"},
        {{"sdo", "read", "5"}, "OBJECT is required; 'nodevik sdo read --help' tells more"},
        {{"sdo", "read", "5", "0x1018", "0x1019"},
         "'0x1019' is one argument too many; 'nodevik sdo read --help' tells more"},
        {{"send", "123#01", "--count", "5"},
         "'--count' is none of its options; 'nodevik send --help' tells more"},
        {{"sdo", "read", "128", "0x1018"},
         "NODE: Value 128 not in range 1 to 127; 'nodevik sdo read --help' tells more"},
        {{"nodes", "--seconds", "nan"},
         "--seconds: Value nan not in range 0.001000 to 1000000000.000000; 'nodevik nodes --help' tells "
         "more"},
        {{"sdo", "read", "5", "1018"},
         "'1018' is no object; right are 0x1018, 0x1018:1, and with --eds a name"},
        {{"--eds", description(), "sdo", "read", "5", "1018:1"},
         "'1018:1' is no object; right are 0x1018, 0x1018:1 and a name"},
        {{"--eds", "128=pump.eds", "sdo", "read", "5", "0x1018"},
         "--eds takes FILE or NODE=FILE, and '128' is no node; right are 1 to 127"},
        {{"--eds", description(), "--eds", description(), "sdo", "read", "5", "0x1018"},
         "--eds names two files for all nodes, " + description() + " and " + description() +
             "; of two kinds of nodes, name the nodes: NODE=FILE"},
        {{"--eds", "5=" + description(), "--eds", "5=" + description(), "sdo", "read", "5", "0x1018"},
         "--eds names two files for node 5, " + description() + " and " + description() +
             "; of two kinds of nodes, name the nodes: NODE=FILE"},
        {{"sdo", "write", "5", "0x1017", "1", "2", "--type", "u16"},
         "'2' is one argument too many; 'nodevik sdo write --help' tells more"},
        {{"sdo", "write", "5", "0x1017", "1", "--type", "u16", "--in", "file"},
         "VALUE excludes --in; 'nodevik sdo write --help' tells more"},
        {{"sdo", "write", "5", "0x1017", "-5", "--type"},
         "--type: 1 required T missing; 'nodevik sdo write --help' tells more"},
        {{"sdo", "write", "5", "0x1017", "-5", "--typo", "i16"},
         "'--typo' is none of its options; 'nodevik sdo write --help' tells more"},
        {{"sdo", "read", "5", "speed"},
         "'speed' is no object; right are 0x1018, 0x1018:1, and with --eds a name"},
        {{"sdo", "read", "5", "0x1018", "--type", "u9"},
         "'u9' is no type; right are bool, u8 to u64, i8 to i64, r32, r64, str, oct and hex"},
        {{"sdo", "write", "5", "0x1017"},
         "VALUE: a value or --in FILE is needed; 'nodevik sdo write --help' tells more"},
        {{"nmt", "start", "all", "--can", "can0"},
         "--can excludes --udp; 'nodevik nmt start --help' tells more"},
        {{"nmt", "start", "0"},
         "NODE: '0' is no node; right are 1 to 127, and all; 'nodevik nmt start --help' tells more"},
        {{"send", "000#8105"},
         "identifier 000 is an NMT command; 'nodevik nmt' sends those, such as 'nodevik nmt start 5'"},
        {{"send", "705#R"},
         "over UDP there are no remote requests and no 29-bit identifiers; such a frame needs a CAN "
         "interface"},
        {{"--udp", "x", "send", "705#"}, ""}};
    for (const auto& [arguments, message] : wrong) {
        const ChildResult result = run(arguments);
        EXPECT_EQ(result.status, 2) << message;
        EXPECT_EQ(result.out, "");
        if (message.empty()) {
            EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        } else {
            EXPECT_EQ(result.err, "nodevik: " + message + "\n");
        }
    }
    EXPECT_EQ(heard(), Frames{});
}

TEST(CommandLine, DoesNotTakeANameThatIsEmptyForNone) {
    for (const std::string option : {"--can", "--udp", "--kvaser"}) {
        expect_failure(run_program({NODEVIK, option, "", "scan"}), 2,
                       option +
                           ": no bus is named; right are can0, 127.0.0.1:5001 with --udp, and 0 with "
                           "--kvaser; 'nodevik scan --help' tells more");
    }
}

TEST_F(Command, TakesANumberWithZerosAheadForDecimal) {
    expect_failure(run({"--timeout", "050", "sdo", "read", "010", "0x1000", "--segments"}), 3,
                   "node 10, 0x1000:0: no answer within 50 ms; is the node on, and is this its number and "
                   "its bus?");
    EXPECT_EQ(run_patiently({"sync", "--period", "1", "--count", "010"}).status, 0);
    Frames expected{"60a 8 40 00 10 00 00 00 00 00", "60a 8 80 00 10 00 00 00 04 05"};
    expected.insert(expected.end(), 10, "080 0");
    EXPECT_EQ(heard(), expected);
}

TEST_F(Command, TellsAValueThatDoesNotHaveTheLengthOfItsType) {
    const ChildResult longer = run_patiently({"--json", "sdo", "read", "5", "0x1008", "--type", "u8"});
    EXPECT_EQ(longer.status, 0);
    EXPECT_EQ(longer.out, R"({"node":5,"index":"0x1008","sub":0,"type":"u8","value":110,)"
                          R"("hex":"6e6f64652d73696d756c61746f72"})"
                          "\n");
    EXPECT_EQ(longer.err,
              "nodevik: 0x1008:0: the node's value has 14 bytes, and UNSIGNED8 has 1; --type hex shows all "
              "of it\n");
    const ChildResult shorter = run_patiently({"sdo", "read", "5", "0x1017", "--type", "r32"});
    EXPECT_EQ(shorter.out, "0x1017:0  0000\n");
    EXPECT_EQ(shorter.err,
              "nodevik: 0x1017:0: the node's value has 2 bytes, and REAL32 has 4; --type hex shows all of "
              "it\n");
    EXPECT_EQ(run_patiently({"--json", "sdo", "read", "5", "0x1017", "--type", "r32"}).out,
              R"({"node":5,"index":"0x1017","sub":0,"type":"r32","value":null,"hex":"0000"})"
              "\n");
    const TemporaryFile file;
    EXPECT_EQ(run_patiently({"sdo", "read", "5", "0x1017", "--type", "r32", "--out", file.path()}).err,
              shorter.err);
    expect_done(run_patiently({"sdo", "read", "5", "0x1017", "--type", "u32"}), "0x1017:0  0\n");
}

TEST_F(Command, TellsANumberThatIsOddlyWritten) {
    const ChildResult result = run_patiently({"sdo", "write", "5", "0x1017", "089", "--type", "u16"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "nodevik: the value '089' has a leading 0 and is not octal: taken as decimal\n");
    expect_done(run_patiently({"sdo", "read", "5", "0x1017", "--type", "u16"}), "0x1017:0  89\n");
}

TEST_F(Command, KeepsANodesTextFromCommandingTheTerminal) {
    const TemporaryFile text;
    text.write(
        "a\x1b[31m\xc2\x9b"
        "2J\x7f");
    expect_done(run_patiently({"sdo", "write", "5", "0x2000", "--in", text.path()}), "");
    expect_done(run_patiently({"sdo", "read", "5", "0x2000", "--type", "str"}),
                "0x2000:0  a\\x1B[31m\\xC2\\x9B2J\\x7F\n");
    expect_failure(run({"sdo", "read", "5", "\x1b[31m"}), 2,
                   "'\\x1B[31m' is no object; right are 0x1018, 0x1018:1, and with --eds a name");
}

TEST_F(Command, EndsWith3WhenNobodyAnswers) {
    expect_failure(
        run({"--timeout", "50", "sdo", "read", "77", "0x1018:1", "--segments"}), 3,
        "node 77, 0x1018:1: no answer within 50 ms; is the node on, and is this its number and its bus?");
    EXPECT_EQ(heard(), (Frames{"64d 8 40 18 10 01 00 00 00 00", "64d 8 80 18 10 01 00 00 04 05"}));
}

TEST_F(Command, EndsWith4WhenTheBusCannotBeUsed) {
    const LoopbackSocket taken;
    const std::string port = std::to_string(taken.port());
    expect_failure(run_program({NODEVIK, "--udp", "127.0.0.1:1," + port, "sdo", "read", "5", "0x1018"}), 4,
                   "UDP port " + port +
                       " cannot be used: Address already in use; choose another LOCALPORT, or leave it out");
    const ChildResult unknown = run_program({NODEVIK, "--udp", "::1:5001", "scan"});
    EXPECT_EQ(unknown.status, 4);
    EXPECT_EQ(unknown.err.rfind("nodevik: host '::1' cannot be found: ", 0), 0U) << unknown.err;
    EXPECT_NE(unknown.err.find("; look for a slip of the pen, or give its IPv4 address\n"),
              std::string::npos);
    const ChildResult missing = run_program({NODEVIK, "--kvaser", "255", "scan"});
    EXPECT_EQ(missing.status, 4);
    EXPECT_NE(missing.err.find("; is CANlib installed, the adapter plugged in, and CHANNEL its number?\n"),
              std::string::npos)
        << missing.err;
    const ChildResult result = run_program({NODEVIK, "--can", "no-such-bus", "sdo", "read", "5", "0x1018"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("nodevik: ", 0), 0U);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
}

TEST_F(Command, SendsTheNmtCommandThatWasAskedForAndNoOther) {
    for (const auto& [word, node] : std::vector<std::pair<const char*, const char*>>{
             {"start", "5"}, {"stop", "5"}, {"preop", "all"}, {"reset", "127"}, {"reset-comm", "1"}}) {
        expect_done(run({"nmt", word, node}), "");
    }
    EXPECT_EQ(heard(), (Frames{"000 2 01 05", "000 2 02 05", "000 2 80 00", "000 2 81 7f", "000 2 82 01"}));
}

TEST_F(Command, SendsTheFrameThatWasAskedFor) {
    expect_done(run({"send", "185#01.02FF"}), "");
    expect_done(run({"send", "080#"}), "");
    EXPECT_EQ(heard(), (Frames{"185 3 01 02 ff", "080 0"}));
}

TEST_F(Command, EndsQuietlyWhenNobodyReadsItsResults) {
    const std::vector<std::string> command = words({"sdo", "read", "5", "0x1018"});
    const ChildResult result = run_in_child([&command] {
        int ends[2];
        if (pipe(ends) != 0) {
            _exit(99);
        }
        close(ends[0]);
        dup2(ends[1], STDOUT_FILENO);
        become(command);
    });
    expect_done(result, "");
}

TEST_F(Command, ShowsProgressOnATerminalUnlessItIsToBeQuiet) {
    const TemporaryFile in;
    in.write(std::string(20000, 'x'));
    for (const bool quiet : {false, true}) {
        PseudoTerminal terminal;
        std::vector<std::string> command = words({"sdo", "write", "6", "0x2002", "--in", in.path()});
        if (quiet) {
            command.push_back("--quiet");
        }
        const ChildResult result = run_in_child([&command, &terminal] {
            dup2(open(terminal.path().c_str(), O_RDWR | O_NOCTTY), STDERR_FILENO);
            become(command);
        });
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "");
        terminal.send("");
        const std::string shown = quiet ? terminal.receive(1, 0) : terminal.receive(42);
        EXPECT_EQ(shown.find('%') != std::string::npos, !quiet) << shown;
    }
}

TEST(CommandAtItsEnd, AbortsTheTransferThatIsInterruptedAndSendsNoNmt) {
    LoopbackSocket node;
    const std::string peer = "127.0.0.1:" + std::to_string(node.port());
    for (const int signal : {SIGINT, SIGTERM}) {
        const pid_t child = fork();
        if (child == 0) {
            execl(NODEVIK, NODEVIK, "--udp", peer.c_str(), "--timeout", "600000", "sdo", "read", "5",
                  "0x1018:1", "--segments", nullptr);
            _exit(99);
        }
        EXPECT_EQ(node.receive(), can_datagram(0x605, std::string("\x40\x18\x10\x01\0\0\0\0", 8)));
        kill(child, signal);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 130);
        EXPECT_EQ(node.receive(), can_datagram(0x605, std::string("\x80\x18\x10\x01\0\0\0\x08", 8)));
        EXPECT_EQ(node.receive(0), std::nullopt);
    }
}

TEST(CommandAtItsEnd, EndsAtASignalWhileItWaitsForAFile) {
    const TemporaryFile place;
    const std::string fifo = place.path() + ".fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int writer = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
    const std::vector<std::vector<std::string>> lines{
        {"eds", "check", fifo},
        {"--eds", fifo, "--udp", "127.0.0.1:1", "monitor"},
        {"--udp", "127.0.0.1:1", "configure", "5", fifo},
        {"--udp", "127.0.0.1:1", "sdo", "write", "5", "0x2000", "--in", fifo}};
    for (std::vector<std::string> line : lines) {
        line.insert(line.begin(), NODEVIK);
        RunningProgram program(line);
        ASSERT_TRUE(eventually([&program] { return catches(program.process(), SIGINT); })) << line[1];
        program.signal(SIGINT);
        EXPECT_EQ(program.end(), 130) << line[1];
        EXPECT_EQ(program.out() + program.err(), "");
    }
    close(writer);
    std::remove(fifo.c_str());
}

TEST(CommandAtItsEnd, ReadsADescriptionFromAPipe) {
    const TemporaryFile place;
    const std::string fifo = place.path() + ".fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    RunningProgram program({NODEVIK, "eds", "show", fifo, "Speed"});
    const int writer = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    const std::string text = description_text;
    EXPECT_EQ(write(writer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(writer);
    EXPECT_EQ(program.end(), 0);
    EXPECT_EQ(program.out(), "0x2000:0    i16     rw       Speed [-100 to 100]\n");
    std::remove(fifo.c_str());
}

TEST(CommandAtItsEnd, DoesNotWaitForAStandardOutputThatIsClosed) {
    const TemporaryFile eds;
    eds.write(description_text);
    const ChildResult result =
        run_program({"/bin/sh", "-c", "exec \"$0\" eds show \"$1\" >&-", NODEVIK, eds.path()});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.err, "nodevik: standard output takes nothing more: Bad file descriptor\n");
}

TEST(CommandAtItsEnd, TellsNobodyWhenStandardErrorIsClosed) {
    const TemporaryFile log;
    const ChildResult result = run_program(
        {"/bin/sh", "-c",
         "\"$0\" --udp 127.0.0.1:1 record \"$1\" --seconds 0.01 <&- >&- 2>&- 3>&- 4>&- 5>&-; echo $?",
         NODEVIK, log.path()});
    EXPECT_EQ(result.out, "0\n");
    EXPECT_EQ(log.content(), "");
}

TEST(CommandHelp, EndsAsEveryResultDoes) {
    for (const char* word : {"--help", "--version"}) {
        const auto redirected = [word](const char* to) {
            return run_program({"/bin/sh", "-c", std::string("exec \"$0\" \"$1\" ") + to, NODEVIK, word});
        };
        expect_failure(redirected("> /dev/full"), 5,
                       "standard output takes nothing more: No space left on device");
        const ChildResult closed = run_in_child([word] {
            int ends[2];
            if (pipe(ends) != 0) {
                _exit(99);
            }
            close(ends[0]);
            dup2(ends[1], STDOUT_FILENO);
            become({NODEVIK, word});
        });
        EXPECT_EQ(closed.signal, 0);
        expect_done(closed, "");
    }
}

TEST(CommandHelp, HasAnExampleForEachCommand) {
    const std::vector<std::vector<std::string>> commands{{},
                                                         {"sdo"},
                                                         {"sdo", "read"},
                                                         {"sdo", "write"},
                                                         {"nmt"},
                                                         {"nmt", "start"},
                                                         {"nmt", "reset-comm"},
                                                         {"send"},
                                                         {"sync"},
                                                         {"nodes"},
                                                         {"scan"},
                                                         {"lss"},
                                                         {"lss", "scan"},
                                                         {"lss", "fastscan"},
                                                         {"lss", "node"},
                                                         {"lss", "bitrate"},
                                                         {"lss", "store"},
                                                         {"monitor"},
                                                         {"record"},
                                                         {"decode"},
                                                         {"eds"},
                                                         {"eds", "check"},
                                                         {"eds", "show"},
                                                         {"eds", "diff"},
                                                         {"eds", "dcf"},
                                                         {"configure"},
                                                         {"pdo"},
                                                         {"pdo", "list"},
                                                         {"pdo", "set"},
                                                         {"dump"},
                                                         {"replay"}};
    for (std::vector<std::string> words : commands) {
        words.insert(words.begin(), NODEVIK);
        words.push_back("--help");
        const ChildResult result = run_program(words);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_NE(result.out.find("Example:\n  nodevik "), std::string::npos) << result.out;
    }
}
