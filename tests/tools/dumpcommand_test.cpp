// nodevik dump: what it asks a node, and the DCF that it makes of the answers.

#include <fnmatch.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <sstream>

#include "tests/support/pseudoterminal.h"
#include "tests/support/runningprogram.h"
#include "tests/tools/scriptednode.h"
#include "tests/tools/simulatedbus.h"

namespace {

const std::string description_text =
    "[DeviceInfo]\nVendorNumber=0x10\n"
    "[MandatoryObjects]\nSupportedObjects=1\n1=0x1000\n"
    "[1000]\nParameterName=Device type\nObjectType=7\nDataType=7\nAccessType=ro\nDefaultValue=0x191\n"
    "[OptionalObjects]\nSupportedObjects=3\n1=0x1003\n2=0x1014\n3=0x1600\n"
    "[1003]\nParameterName=Errors\nObjectType=8\nSubNumber=1\n"
    "[1003sub0]\nParameterName=Count\nObjectType=7\nDataType=5\nAccessType=rw\n"
    "[1014]\nParameterName=COB-ID EMCY\nObjectType=7\nDataType=7\nAccessType=rw\nDefaultValue=$NODEID+0x80\n"
    "[1600]\nParameterName=Mapping\nObjectType=9\nSubNumber=2\n"
    "[1600sub0]\nParameterName=Count\nObjectType=7\nDataType=5\nAccessType=rw\n"
    "[1600sub1]\nParameterName=Object 1\nObjectType=7\nDataType=7\nAccessType=rw\n"
    "[ManufacturerObjects]\nSupportedObjects=7\n1=0x2000\n2=0x2001\n3=0x2002\n4=0x2003\n5=0x2004\n6=0x2005\n"
    "7=0x2006\n"
    "[2000]\nParameterName=Limit\nObjectType=7\nDataType=3\nAccessType=rw\nHighLimit=100\n"
    "[2001]\nParameterName=Command\nObjectType=7\nDataType=6\nAccessType=rw\nPDOMapping=1\n"
    "[2002]\nParameterName=Target\nObjectType=7\nDataType=6\nAccessType=rww\nPDOMapping=1\n"
    "[2003]\nParameterName=Label\nObjectType=7\nDataType=9\nAccessType=rw\n"
    "[2004]\nParameterName=Key\nObjectType=7\nDataType=7\nAccessType=wo\n"
    "[2005]\nParameterName=Firmware\nObjectType=2\nDataType=15\nAccessType=rw\n"
    "[2006]\nParameterName=Passing\nObjectType=7\nDataType=5\nAccessType=rw\nObjFlags=2\n";

// A node that is what the description says.
void fill(ScriptedNode& node) {
    node.add(0x1000, 0, 0x191, 4);
    node.add(0x1003, 0, 0, 1);
    node.add(0x1014, 0, 0x85, 4);
    node.add(0x1018, 1, 0x10, 4);
    node.add(0x1600, 0, 1, 1);
    node.add(0x1600, 1, 0x20010010, 4);
    node.add(0x2000, 0, 0xFFF9, 2);
    node.add(0x2001, 0, 15, 2);
    node.add(0x2002, 0, 1000, 2);
    node.sdo.objects[0x200300] = {'a', ' ', 'b', 0, 0};
    node.add(0x2006, 0, 1, 1);
}

// The entries that are read of it, besides its identity.
constexpr unsigned int described_entries = 8;

ChildResult dump(const ScriptedNode& node, const std::vector<std::string>& words,
                 const char* timeout_ms = "60000") {
    std::vector<std::string> all{NODEVIK, "--udp", node.bus(), "--timeout", timeout_ms, "dump", "5"};
    all.insert(all.end(), words.begin(), words.end());
    return run_program(all);
}

// Whether a text is like a pattern of the shell's, fnmatch(3).
bool matches(const std::string& text, const char* pattern) {
    return fnmatch(pattern, text.c_str(), 0) == 0;
}

class Dump : public testing::Test {
protected:
    Dump() {
        eds_.write(description_text);
        fill(node_);
    }

    const std::string& eds() const { return eds_.path(); }
    const std::string& dcf() const { return dcf_.path(); }
    ScriptedNode& node() { return node_; }
    std::string written() const { return dcf_.content(); }

    // The value of an entry in the DCF; empty when it has none.
    std::string value(const std::string& section) const {
        const std::string text = dcf_.content();
        const std::size_t begin = text.find("[" + section + "]\n");
        const std::size_t end = text.find("\n[", begin);
        const std::size_t at = text.find("ParameterValue=", begin);
        if (begin == std::string::npos || at == std::string::npos || at > end) {
            return "";
        }
        return text.substr(at + 15, text.find('\n', at) - at - 15);
    }

private:
    TemporaryFile eds_;
    TemporaryFile dcf_;
    ScriptedNode node_;
};

const std::string left_out =
    "nodevik: node 5: 8 values read; 2 that it receives in PDOs are no settings, and are left out of the "
    "DCF\n"
    "nodevik: domains are not read, and left out of the DCF: 0x2005:0; 'nodevik sdo read 5 0x2005:0 --out "
    "FILE' "
    "keeps one\n";

}  // namespace

TEST_F(Dump, HasTheValuesOfTheNode) {
    node().start();
    const ChildResult result = dump(node(), {"--eds", eds(), dcf()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, left_out);
    EXPECT_EQ(value("1000"), "0x00000191");
    EXPECT_EQ(value("1014"), "$NODEID+0x80");  // as the description has it, so that it suits another number
    EXPECT_EQ(value("1600sub0"), "1");
    EXPECT_EQ(value("1600sub1"), "0x20010010");
    EXPECT_EQ(value("2000"), "-7");
    EXPECT_EQ(value("2003"), "a b");
    EXPECT_EQ(run_program({NODEVIK, "eds", "check", dcf()}).status, 0);
}

TEST_F(Dump, LeavesOutWhatIsNoSetting) {
    node().start();
    dump(node(), {"--eds", eds(), dcf()});
    const Frames frames = node().stop();
    for (const char* section : {"1003sub0", "2001", "2002", "2004", "2005", "2006"}) {
        EXPECT_EQ(value(section), "") << section;
    }
    // The history of errors, what cannot be read, programs, and what is not to be read are not asked for.
    for (const std::string& frame : frames) {
        for (const char* object : {" 03 10 ", " 04 20 ", " 05 20 ", " 06 20 "}) {
            EXPECT_EQ(frame.find(object), std::string::npos) << frame;
        }
    }
    EXPECT_EQ(changing(frames), Frames{});
    // Its type and vendor too, to see that it is the right one; the text comes in a segment.
    EXPECT_EQ(frames.size(), described_entries + 2 + 1);
}

TEST_F(Dump, ShowsTheEntriesInJson) {
    node().start();
    const ChildResult result = dump(node(), {"--eds", eds(), "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(
        result.out,
        "{\"node\":5,\"index\":\"0x1000\",\"sub\":0,\"type\":\"u32\",\"value\":401,\"hex\":\"91010000\","
        "\"name\":\"Device type\"}\n"
        "{\"node\":5,\"index\":\"0x1014\",\"sub\":0,\"type\":\"u32\",\"value\":133,\"hex\":\"85000000\","
        "\"name\":\"COB-ID EMCY\"}\n"
        "{\"node\":5,\"index\":\"0x1600\",\"sub\":0,\"type\":\"u8\",\"value\":1,\"hex\":\"01\",\"name\":"
        "\"Mapping/Count\"}\n"
        "{\"node\":5,\"index\":\"0x1600\",\"sub\":1,\"type\":\"u32\",\"value\":536936464,\"hex\":"
        "\"10000120\","
        "\"name\":\"Mapping/Object 1\"}\n"
        "{\"node\":5,\"index\":\"0x2000\",\"sub\":0,\"type\":\"i16\",\"value\":-7,\"hex\":\"f9ff\",\"name\":"
        "\"Limit\"}\n"
        "{\"node\":5,\"index\":\"0x2001\",\"sub\":0,\"type\":\"u16\",\"value\":15,\"hex\":\"0f00\",\"name\":"
        "\"Command\"}\n"
        "{\"node\":5,\"index\":\"0x2002\",\"sub\":0,\"type\":\"u16\",\"value\":1000,\"hex\":\"e803\","
        "\"name\":"
        "\"Target\"}\n"
        "{\"node\":5,\"index\":\"0x2003\",\"sub\":0,\"type\":\"str\",\"value\":\"a "
        "b\",\"hex\":\"6120620000\","
        "\"name\":\"Label\"}\n");
    EXPECT_EQ(result.err, left_out);
}

TEST_F(Dump, WritesTheDcfToStandardOutputWithoutAFile) {
    node().start();
    const ChildResult result = dump(node(), {"--eds", eds()});
    EXPECT_EQ(result.status, 0);
    dump(node(), {"--eds", eds(), dcf()});
    const auto without_times = [](const std::string& text) {
        std::istringstream lines(text);
        std::string rest;
        for (std::string line; std::getline(lines, line);) {
            const bool is_time = line.rfind("FileName=", 0) == 0 || line.rfind("Modification", 0) == 0;
            rest += is_time ? "" : line + "\n";
        }
        return rest;
    };
    const TemporaryFile shown;
    shown.write(result.out);
    EXPECT_EQ(run_program({NODEVIK, "eds", "diff", shown.path(), dcf()}).out, "");
    EXPECT_EQ(without_times(result.out), without_times(written()));
}

TEST_F(Dump, GivesADcfThatTheNodeIsTheSameAs) {
    const SimulatedBus nodes(NODEVIK, NODE_SIMULATOR, {"--nodes", "5,6"});
    for (const bool described : {true, false}) {
        const TemporaryFile file;
        const std::vector<std::string> options =
            described ? std::vector<std::string>{"--eds", EDS} : std::vector<std::string>{};
        std::vector<std::string> words{"dump", "5", file.path()};
        words.insert(words.end(), options.begin(), options.end());
        EXPECT_EQ(nodes.run_patiently(words).status, 0);
        const ChildResult check = run_program({NODEVIK, "eds", "check", file.path()});
        EXPECT_EQ(check.status, 0);
        EXPECT_EQ(check.out, "");
        const ChildResult same = nodes.run_patiently({"configure", "5", file.path(), "--dry-run"});
        EXPECT_EQ(same.status, 0) << same.err;
        EXPECT_TRUE(matches(same.err, "nodevik: node 5: *[0-9] same; nothing was written\n"))
            << same.err << same.out;
    }
    const Frames frames = nodes.heard();
    EXPECT_EQ(changing(frames), Frames{});
    expect_requests_alone(frames);
}

TEST_F(Dump, GivesADcfThatSetsAnotherNodeUpAlike) {
    const SimulatedBus nodes(NODEVIK, NODE_SIMULATOR, {"--nodes", "5"});
    nodes.run_patiently({"sdo", "write", "5", "0x1017", "777", "--type", "u16"});
    nodes.run_patiently({"pdo", "set", "5", "tpdo", "1", "0x385", "254", "0x6000:2/8"});
    const TemporaryFile file;
    EXPECT_EQ(nodes.run_patiently({"dump", "5", file.path()}).status, 0);
    const std::string before = nodes.run_patiently({"pdo", "list", "5"}).out;
    ASSERT_EQ(nodes.simulator().command("off 5"), "ok");
    ASSERT_EQ(nodes.simulator().command("on 5"), "ok");
    EXPECT_NE(nodes.run_patiently({"pdo", "list", "5"}).out, before);
    const ChildResult set = nodes.run_patiently({"configure", "5", file.path()});
    EXPECT_EQ(set.status, 0) << set.err << set.out;
    EXPECT_EQ(nodes.run_patiently({"pdo", "list", "5"}).out, before);
    EXPECT_EQ(nodes.run_patiently({"sdo", "read", "5", "0x1017", "--type", "u16"}).out, "0x1017:0  777\n");
}

TEST_F(Dump, AsksForTheCommunicationProfileWithoutADescriptionAndSaysSo) {
    node().add(0x1400, 0, 2, 1);
    node().add(0x1400, 1, 0x205, 4);
    node().add(0x1400, 2, 255, 1);
    node().add(0x1F80, 0, 3, 4);
    node().add(0x1F81, 0, 2, 1);  // one value that could be a count
    node().add(0x1FFF, 0, 1, 1);
    node().add(0x1FFF, 1, 0x0102030405060708, 8);
    node().sdo.objects[0x1F8200] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    node().start();
    const ChildResult result = dump(node(), {dcf()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "nodevik: without a description (--eds) node 5 is asked for the communication profile, 0x1000 "
              "to 0x1FFF, "
              "alone\nnodevik: node 5: 12 values read\n");
    const Frames frames = node().stop();
    for (const std::string& frame : frames) {
        const bool is_segment = frame.substr(6, 2) == "60" || frame.substr(6, 2) == "70";
        EXPECT_TRUE(is_segment || frame[12] == '1') << frame;  // the index's first digit
        EXPECT_EQ(frame.find(" 03 10 "), std::string::npos) << frame;
    }
    EXPECT_EQ(changing(frames), Frames{});
    EXPECT_GE(frames.size(), 4000U);
    EXPECT_EQ(value("1400sub1"), "0x00000205");
    EXPECT_EQ(value("1F80"), "0x00000003");
    EXPECT_EQ(value("1F81"), "2");
    EXPECT_EQ(value("1F82"), "010203040506070809");
    EXPECT_EQ(value("1FFFsub1"), "72623859790382856");
    const ChildResult check = run_program({NODEVIK, "eds", "check", dcf()});
    EXPECT_EQ(check.status, 0);
    EXPECT_EQ(check.out, "");
    node().start();
    EXPECT_TRUE(matches(run_program({NODEVIK, "--udp", node().bus(), "--timeout", "60000", "configure", "5",
                                     dcf(), "--dry-run"})
                            .err,
                        "nodevik: node 5: *[0-9] same; nothing was written\n"));
}

TEST_F(Dump, TakesAValueOfAnotherLengthThanTheProfileHas) {
    node().sdo.objects[0x160000] = {1, 0, 0, 0};
    node().start();
    const ChildResult result = dump(node(), {dcf()});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(value("1600sub0"), "0x00000001");
    EXPECT_EQ(value("1600sub1"), "0x20010010");
    EXPECT_EQ(run_program({NODEVIK, "eds", "check", dcf()}).status, 0);
}

TEST_F(Dump, TellsEntriesThatTheNodeRefusesAndEndsWith1) {
    node().sdo.objects.erase(0x200000);
    node().refusal = [](const std::string& frame) {
        return frame.find(" 03 20 00") != std::string::npos ? 0x08000022U : 0U;
    };
    node().start();
    const ChildResult result = dump(node(), {"--eds", eds(), dcf()});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(matches(result.err,
                        "nodevik: node 5, 0x2000:0: the node refuses: *(0x06020000)\n"
                        "nodevik: node 5, 0x2003:0: the node refuses: *(0x08000022)\n"
                        "nodevik: node 5: 6 values read; *\n"
                        "nodevik: node 5 has refused 2 entries, which the DCF lacks\n"))
        << result.err;
    EXPECT_EQ(value("2000"), "");
    EXPECT_EQ(value("1600sub1"), "0x20010010");
}

TEST_F(Dump, TellsValuesThatNoDcfCanHold) {
    node().add(0x2000, 0, 0, 0);
    node().sdo.objects[0x200000] = {101, 0};
    node().sdo.objects[0x200300] = {'a', 7, 'b'};
    node().start();
    const ChildResult result = dump(node(), {"--eds", eds(), dcf()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "nodevik: 0x2000:0: the node's value is above the high limit 100, and is left out of the DCF\n"
              "nodevik: 0x2003:0: the node's value has characters that a DCF cannot hold, and is left out of "
              "the DCF\n" +
                  left_out);
    EXPECT_EQ(run_program({NODEVIK, "eds", "check", dcf()}).status, 0);
}

TEST_F(Dump, TellsNumbersThatAreNotAsLongAsTheDescriptionHasThem) {
    node().sdo.objects[0x200000] = {0x70, 0x11, 0x01, 0x00};  // 70000, which cut would be 4464
    node().start();
    const ChildResult result = dump(node(), {"--eds", eds(), dcf()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "nodevik: 0x2000:0: the node's value has 4 bytes, and INTEGER16 has 2, and is left out of the "
              "DCF\n" +
                  left_out);
    EXPECT_EQ(value("2000"), "");
}

TEST_F(Dump, MakesNothingOfANodeThatIsAnotherOne) {
    const std::string missing = dcf() + ".new";
    node().sdo.objects[0x101801] = {0x11, 0, 0, 0};
    node().start();
    expect_failure(dump(node(), {"--eds", eds(), missing}), 1,
                   "node 5 is not what the file describes: vendor is 0x00000011, the file has 0x00000010");
    EXPECT_NE(access(missing.c_str(), F_OK), 0);
}

TEST_F(Dump, LeavesTheFileAsItWasAtWhicheverStepTheNodeFallsSilent) {
    const TemporaryFile there;
    there.write("before");
    for (unsigned int step = 1; step <= described_entries + 3; ++step) {
        ScriptedNode silent;
        fill(silent);
        silent.silent_from = step;
        silent.start();
        const ChildResult result = dump(silent, {"--eds", eds(), there.path()}, "40");
        EXPECT_EQ(result.status, 3) << step << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(there.content(), "before") << step;
    }
    ScriptedNode silent;
    silent.silent_from = 1;
    silent.start();
    EXPECT_EQ(dump(silent, {there.path()}, "40").status, 3);
    EXPECT_EQ(there.content(), "before");
}

TEST_F(Dump, EndsAtASignalWithTheEntriesSoFarAndWithoutADcf) {
    const TemporaryFile there;
    there.write("before");
    RunningProgram run(std::vector<std::string>{NODEVIK, "--udp", node().bus(), "--timeout", "60000",
                                                "--json", "--eds", eds(), "dump", "5", there.path()});
    node().signal_at(5, run.process());
    node().start();
    EXPECT_EQ(run.end(), 130);
    const std::string out = run.out();
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 2) << out;
    EXPECT_EQ(run.err(), "nodevik: node 5: 2 values read; no DCF is made\n");
    EXPECT_EQ(there.content(), "before");
    expect_requests_alone(node().stop());
}

TEST_F(Dump, SendsNothingWhenTheFileCannotBeWritten) {
    node().start();
    expect_failure(dump(node(), {"--eds", eds(), "/no/such/file"}), 5,
                   "/no/such/file cannot be written: No such file or directory");
    expect_failure(dump(node(), {"--eds", "/no/such", dcf()}), 5,
                   "/no/such: cannot be read: No such file or directory");
    EXPECT_EQ(node().stop(), Frames{});
}

TEST_F(Dump, LeavesNoPartOfADcfOnAFullDisk) {
    const TemporaryFile there;
    there.write("before");
    node().start();
    // So many blocks of 512 bytes, and no more, are taken for a file.
    const ChildResult result =
        run_program({"/bin/sh", "-c", "trap '' XFSZ; ulimit -f 1; exec \"$0\" \"$@\"", NODEVIK, "--udp",
                     node().bus(), "--timeout", "60000", "--eds", eds(), "dump", "5", there.path()});
    EXPECT_EQ(result.status, 5);
    EXPECT_NE(result.err.find(there.path() + " cannot be written: "), std::string::npos) << result.err;
    EXPECT_EQ(there.content(), "before");
    expect_failure(run_program({"/bin/sh", "-c", "exec \"$0\" \"$@\" > /dev/full", NODEVIK, "--udp",
                                node().bus(), "--timeout", "60000", "--eds", eds(), "dump", "5"}),
                   5, "standard output takes nothing more: No space left on device");
}

TEST_F(Dump, ShowsOnATerminalHowFarItIsUnlessItIsToBeQuiet) {
    node().start();
    for (const std::string quiet : {"", "--quiet"}) {
        PseudoTerminal terminal;
        const ChildResult result =
            run_program({"/bin/sh", "-c", "exec \"$0\" --udp \"$1\" dump 5 \"$2\" $4 2> \"$3\"", NODEVIK,
                         node().bus(), dcf(), terminal.path(), quiet});
        EXPECT_EQ(result.status, 0);
        const std::string shown = quiet.empty() ? terminal.receive(160) : terminal.receive(160, 0);
        EXPECT_EQ(shown.find(" %") != std::string::npos, quiet.empty()) << shown;
    }
}

TEST_F(Dump, EndsQuietlyWhenNobodyReadsItsResults) {
    node().start();
    const ChildResult result =
        run_program({"/bin/sh", "-c", "{ \"$0\" \"$@\"; echo $? >&2; } | :", NODEVIK, "--udp", node().bus(),
                     "--timeout", "60000", "--eds", eds(), "--json", "dump", "5"});
    EXPECT_EQ(result.err, "0\n");
}

TEST_F(Dump, IsNotMisledByANodeThatRepeatsItself) {
    node().script = [](unsigned int, const ScriptedNode::Data&, ScriptedNode::Answers& answers) {
        const ScriptedNode::Answers once = answers;
        answers.insert(answers.end(), once.begin(), once.end());
    };
    node().start();
    const ChildResult result = dump(node(), {"--eds", eds(), dcf()});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(value("2000"), "-7");
    EXPECT_EQ(value("1600sub1"), "0x20010010");
}
