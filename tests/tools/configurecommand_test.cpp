// nodevik configure: what it prints, what it sends, and what the nodes have afterwards.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fstream>

#include "tests/support/runningprogram.h"
#include "tests/support/temporaryfile.h"
#include "tests/tools/scriptednode.h"
#include "tests/tools/simulatedbus.h"

namespace {

const std::string description_text =
    "[DeviceInfo]\nVendorNumber=0x10\nProductNumber=0x20\n"
    "[MandatoryObjects]\nSupportedObjects=1\n1=0x1000\n"
    "[1000]\nParameterName=Device type\nObjectType=7\nDataType=7\nAccessType=ro\nDefaultValue=0x191\n"
    "[OptionalObjects]\nSupportedObjects=3\n1=0x1017\n2=0x1800\n3=0x1A00\n"
    "[1017]\nParameterName=Heartbeat\nObjectType=7\nDataType=6\nAccessType=rw\nHighLimit="
    "9000\nParameterValue=500\n"
    "[1800]\nParameterName=TPDO 1\nObjectType=9\nSubNumber=3\n"
    "[1800sub0]\nParameterName=Count\nObjectType=7\nDataType=5\nAccessType=ro\nDefaultValue=2\n"
    "[1800sub1]\nParameterName=COB-ID\nObjectType=7\nDataType=7\nAccessType=rw\nParameterValue=$NODEID+"
    "0x280\n"
    "[1800sub2]\nParameterName=Type\nObjectType=7\nDataType=5\nAccessType=rw\nParameterValue=1\n"
    "[1A00]\nParameterName=Mapping 1\nObjectType=9\nSubNumber=2\n"
    "[1A00sub0]\nParameterName=Count\nObjectType=7\nDataType=5\nAccessType=rw\nParameterValue=1\n"
    "[1A00sub1]\nParameterName=Object 1\nObjectType=7\nDataType=7\nAccessType=rw\nParameterValue=0x60000208\n"
    "[ManufacturerObjects]\nSupportedObjects=1\n1=0x2000\n"
    "[2000]\nParameterName=Speed\nObjectType=7\nDataType=3\nAccessType=rw\nParameterValue=-7\n";
const std::string commissioning_text = "[DeviceComissioning]\nNodeID=5\n";

// A file with the text, changed by a test.
class DcfFile {
public:
    DcfFile() { file_.write(text_); }

    void change(const std::string& from, const std::string& to) {
        const std::size_t at = text_.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        text_.replace(at, from.size(), to);
        file_.write(text_);
    }
    const std::string& path() const { return file_.path(); }

private:
    std::string text_ = description_text + commissioning_text;
    TemporaryFile file_;
};

// Against the simulator, which plays the description without its values.
class Configure : public testing::Test {
protected:
    Configure() {
        std::string text = description_text;
        for (std::size_t at = text.find("ParameterValue="); at != std::string::npos;
             at = text.find("ParameterValue=")) {
            text.erase(at, text.find('\n', at) - at + 1);
        }
        eds_.write(text);
    }

    const std::string& dcf() const { return dcf_.path(); }
    const std::string& eds() const { return eds_.path(); }
    DcfFile& file() { return dcf_; }

private:
    DcfFile dcf_;
    TemporaryFile eds_;
};

// A scripted node that is what the description says, with other values.
void fill(ScriptedNode& node) {
    node.add(0x1000, 0, 0x191, 4);
    node.add(0x1017, 0, 0, 2);
    node.add(0x1018, 1, 0x10, 4);
    node.add(0x1018, 2, 0x20, 4);
    node.add(0x1800, 1, 0x185, 4);
    node.add(0x1800, 2, 255, 1);
    node.add(0x1A00, 0, 1, 1);
    node.add(0x1A00, 1, 0x60000108, 4);
    node.add(0x2000, 0, 0, 2);
}

ChildResult configure(const ScriptedNode& node, const std::string& file,
                      const std::vector<std::string>& options = {}, const char* timeout_ms = "60000") {
    std::vector<std::string> words{NODEVIK,    "--udp",     node.bus(), "--timeout",
                                   timeout_ms, "configure", "5",        file};
    words.insert(words.end(), options.begin(), options.end());
    return run_program(words);
}

const char* const all_written =
    "0x1017:0    written      500  Heartbeat\n"
    "0x1800:1    written      0x00000285  TPDO 1/COB-ID\n"
    "0x1800:2    written      1  TPDO 1/Type\n"
    "0x1A00:0    same         1  Mapping 1/Count\n"
    "0x1A00:1    written      0x60000208  Mapping 1/Object 1\n"
    "0x2000:0    written      -7  Speed\n";

constexpr std::uint32_t not_mappable = 0x06040041;

// What is written to set it all up, in an order that every node takes.
const Frames all_writes{"605 8 23 00 18 01 85 01 00 80", "605 8 2f 00 18 02 01 00 00 00",
                        "605 8 2f 00 1a 00 00 00 00 00", "605 8 23 00 1a 01 08 02 00 60",
                        "605 8 2f 00 1a 00 01 00 00 00", "605 8 23 00 18 01 85 02 00 00",
                        "605 8 2b 00 20 00 f9 ff 00 00", "605 8 2b 17 10 00 f4 01 00 00"};

}  // namespace

TEST_F(Configure, WritesWhatDiffersAndTellsWhatBecameOfEachObject) {
    ScriptedNode node;
    fill(node);
    node.start();
    const ChildResult result = configure(node, dcf());
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, all_written);
    EXPECT_EQ(result.err, "nodevik: node 5: 5 written, 1 same\n");
    EXPECT_EQ(changing(node.stop()), all_writes);
}

TEST_F(Configure, WritesNothingThatIsTheSame) {
    ScriptedNode node;
    fill(node);
    node.start();
    configure(node, dcf());
    const std::size_t before = changing(node.stop()).size();
    node.start();
    const ChildResult result = configure(node, dcf(), {"--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "{\"index\":\"0x1017\",\"sub\":0,\"result\":\"same\",\"abort\":null}\n"
              "{\"index\":\"0x1800\",\"sub\":1,\"result\":\"same\",\"abort\":null}\n"
              "{\"index\":\"0x1800\",\"sub\":2,\"result\":\"same\",\"abort\":null}\n"
              "{\"index\":\"0x1A00\",\"sub\":0,\"result\":\"same\",\"abort\":null}\n"
              "{\"index\":\"0x1A00\",\"sub\":1,\"result\":\"same\",\"abort\":null}\n"
              "{\"index\":\"0x2000\",\"sub\":0,\"result\":\"same\",\"abort\":null}\n");
    EXPECT_EQ(result.err, "nodevik: node 5: 6 same\n");
    EXPECT_EQ(changing(node.stop()).size(), before);
}

TEST_F(Configure, OnlyComparesInADryRun) {
    for (const std::vector<std::string>& options :
         {std::vector<std::string>{"--dry-run"}, {"--dry-run", "--store", "--restore"}}) {
        ScriptedNode node;
        fill(node);
        node.start();
        const ChildResult result = configure(node, dcf(), options);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out,
                  "0x1017:0    would-write  500  Heartbeat\n"
                  "0x1800:1    would-write  0x00000285  TPDO 1/COB-ID\n"
                  "0x1800:2    would-write  1  TPDO 1/Type\n"
                  "0x1A00:0    same         1  Mapping 1/Count\n"
                  "0x1A00:1    would-write  0x60000208  Mapping 1/Object 1\n"
                  "0x2000:0    would-write  -7  Speed\n");
        EXPECT_EQ(result.err, "nodevik: node 5: 5 would-write, 1 same; nothing was written\n");
        EXPECT_EQ(changing(node.stop()), Frames{});
    }
}

TEST_F(Configure, SetsUpTheSimulator) {
    const SimulatedBus nodes(NODEVIK, NODE_SIMULATOR, {"--nodes", "5,6", "--eds", eds()});
    file().change("DataType=5\nAccessType=rw\nParameterValue=1\n",
                  "DataType=5\nAccessType=rw\nParameterValue=254\n");
    file().change("ParameterName=Count\nObjectType=7\nDataType=5\nAccessType=rw\nParameterValue=1",
                  "ParameterName=Count\nObjectType=7\nDataType=5\nAccessType=rw\nParameterValue=0");
    file().change("AccessType=rw\nParameterValue=0x60000208", "AccessType=rw\nParameterValue=0");
    file().change("VendorNumber=0x10\nProductNumber=0x20\n", "");
    const ChildResult first = nodes.run_patiently({"configure", "5", dcf()});
    EXPECT_EQ(first.status, 0) << first.err << first.out;
    const ChildResult second = nodes.run_patiently({"configure", "5", dcf(), "--dry-run", "--json"});
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(second.err, "nodevik: node 5: 6 same; nothing was written\n");
    // Nobody commands a state, and the other node is left alone.
    expect_requests_alone(nodes.heard());
}

TEST_F(Configure, WritesTheContentOfAFileIntoADomain) {
    const SimulatedBus bus(NODEVIK, NODE_SIMULATOR, {"--nodes", "5"});
    const TemporaryFile program;  // longer than what the node has, and then shorter
    const std::string name = program.path().substr(program.path().rfind('/') + 1);
    std::ifstream eds_file(EDS);
    std::string text{std::istreambuf_iterator<char>(eds_file), {}};
    text.insert(text.find('\n', text.find("[2006]")) + 1, "DownloadFile=" + name + "\n");
    const TemporaryFile dcf;  // in the same directory
    dcf.write(text);
    for (const std::string& content : {std::string(5000, 'p'), std::string("short")}) {
        program.write(content);
        const std::string line = std::to_string(content.size()) + " bytes of " + name + "  Large domain\n";
        EXPECT_EQ(bus.run_patiently({"configure", "5", dcf.path(), "--dry-run"}).out,
                  "0x2006:0    would-write  " + line);
        const ChildResult result = bus.run_patiently({"configure", "5", dcf.path()});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, "0x2006:0    written      " + line);
        EXPECT_EQ(bus.run_patiently({"configure", "5", dcf.path()}).out, "0x2006:0    same         " + line);
        EXPECT_EQ(bus.run_patiently({"sdo", "read", "5", "0x2006", "--type", "oct"}).out, content);
    }
}

TEST_F(Configure, SendsNothingWhenTheContentOfADomainIsNotClear) {
    const SimulatedBus bus(NODEVIK, NODE_SIMULATOR, {"--nodes", "5"});
    const TemporaryFile empty;
    std::ifstream eds_file(EDS);
    const std::string text{std::istreambuf_iterator<char>(eds_file), {}};
    const TemporaryFile dcf;
    const auto told = [&](const std::string& lines) {
        std::string changed = text;
        dcf.write(changed.insert(changed.find('\n', changed.find("[2006]")) + 1, lines));
        const ChildResult result = bus.run({"configure", "5", dcf.path()});
        EXPECT_EQ(result.status, 5);
        return result.err;
    };
    EXPECT_EQ(told("DownloadFile=/no/such\n"),
              "nodevik: /no/such cannot be read: No such file or directory\n");
    EXPECT_EQ(told("DownloadFile=" + empty.path() + "\n"),
              "nodevik: " + empty.path() +
                  ", the value of 0x2006:0, is empty; nothing is sent before this is mended\n");
    EXPECT_EQ(told("DownloadFile=" + empty.path() + "\nParameterValue=01\n"),
              "nodevik: " + dcf.path() +
                  ": 0x2006:0 has both a ParameterValue and a DownloadFile; nothing is sent before this is "
                  "mended\n");
    EXPECT_EQ(bus.heard(), Frames());
}

TEST_F(Configure, StoresWhenAllIsWell) {
    ScriptedNode node;
    fill(node);
    node.add(0x1010, 1, 1, 4);
    node.start();
    const ChildResult result = configure(node, dcf(), {"--store"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "nodevik: node 5: 5 written, 1 same, stored\n");
    Frames expected = all_writes;
    expected.push_back("605 8 23 10 10 01 73 61 76 65");
    EXPECT_EQ(changing(node.stop()), expected);
}

TEST_F(Configure, ResetsThatNodeAloneToRestoreItsValuesAndSaysSo) {
    ScriptedNode node;
    fill(node);
    node.add(0x1011, 1, 1, 4);
    node.start();
    const ChildResult result = configure(node, dcf(), {"--restore"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, all_written);
    EXPECT_EQ(result.err,
              "nodevik: node 5 is reset (NMT), which restoring its values needs\n"
              "nodevik: node 5: 5 written, 1 same, restored\n");
    Frames expected{"605 8 23 11 10 01 6c 6f 61 64", "000 2 81 05"};
    expected.insert(expected.end(), all_writes.begin(), all_writes.end());
    EXPECT_EQ(changing(node.stop()), expected);
}

TEST_F(Configure, RefusesAFileThatSetsNothingUnlessTheNodeIsToRestore) {
    ScriptedNode node;
    fill(node);
    node.add(0x1011, 1, 1, 4);
    node.start();
    expect_failure(
        configure(node, eds()), 5,
        eds() + " has no value for a node (ParameterValue); 'nodevik eds dcf' makes a DCF with values");
    EXPECT_EQ(node.requests(), 0U);
    const ChildResult result = configure(node, eds(), {"--restore"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "nodevik: node 5 is reset (NMT), which restoring its values needs\n"
              "nodevik: node 5: no value to write, restored\n");
    EXPECT_EQ(changing(node.stop()), (Frames{"605 8 23 11 10 01 6c 6f 61 64", "000 2 81 05"}));
}

TEST_F(Configure, EndsAtASignalWhileItWaitsForANodeThatDoesNotComeBack) {
    ScriptedNode node;
    fill(node);
    node.add(0x1011, 1, 1, 4);
    node.boots = false;
    RunningProgram run(
        {NODEVIK, "--udp", node.bus(), "--timeout", "60000", "configure", "5", dcf(), "--restore"});
    node.when_reset = [program = run.process()] { kill(program, SIGINT); };
    node.start();
    EXPECT_EQ(run.end(), 130);
    EXPECT_EQ(run.err(),
              "nodevik: node 5 is reset (NMT), which restoring its values needs\n"
              "nodevik: node 5: 6 not-reached\n");
    EXPECT_EQ(changing(node.stop()), (Frames{"605 8 23 11 10 01 6c 6f 61 64", "000 2 81 05"}));
}

TEST_F(Configure, SendsNothingToANodeThatIsAnotherOne) {
    ScriptedNode node;
    fill(node);
    node.sdo.objects[0x101802] = {0x21, 0, 0, 0};
    node.add(0x1011, 1, 1, 4);
    node.start();
    const ChildResult result = configure(node, dcf(), {"--restore", "--store"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(
        result.err,
        "nodevik: node 5: 6 not-reached\n"
        "nodevik: node 5 is not what the file describes: product is 0x00000021, the file has 0x00000020\n");
    EXPECT_EQ(changing(node.stop()), Frames{});
}

TEST_F(Configure, LeavesAPdoAsItWasWhenTheNodeRefusesAnyOfItsSteps) {
    for (unsigned int step = 0; step < 6; ++step) {
        ScriptedNode node;
        fill(node);
        bool is_refused = false;
        node.refusal = [&](const std::string& frame) {
            if (is_refused || frame != all_writes[step]) {
                return 0U;
            }
            is_refused = true;
            return not_mappable;
        };
        node.start();
        const ChildResult result = configure(node, dcf(), {"--store"});
        EXPECT_EQ(result.status, 1) << step;
        EXPECT_NE(result.out.find("Object cannot be mapped to the PDO. (0x06040041)\n"), std::string::npos)
            << result.out;
        EXPECT_NE(result.out.find("0x2000:0    written      -7  Speed\n"), std::string::npos) << result.out;
        EXPECT_NE(result.err.find("nodevik: node 5: not every object could be set: nothing is stored\n"),
                  std::string::npos)
            << result.err;
        EXPECT_EQ(result.err.find("neither"), std::string::npos) << result.err;
        node.stop();
        EXPECT_TRUE(is_refused) << step;
        EXPECT_EQ(node.value(0x1800, 1), 0x185U) << step;
        EXPECT_EQ(node.value(0x1800, 2), 255U) << step;
        EXPECT_EQ(node.value(0x1A00, 0), 1U) << step;
        EXPECT_EQ(node.value(0x1A00, 1), 0x60000108U) << step;
    }
}

TEST_F(Configure, TellsTheAbortOfARefusedObjectInJson) {
    ScriptedNode node;
    fill(node);
    node.refusal = [](const std::string& frame) { return frame == all_writes[6] ? 0x06090031U : 0U; };
    node.start();
    const ChildResult result = configure(node, dcf(), {"--json"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(
        result.out.find("{\"index\":\"0x2000\",\"sub\":0,\"result\":\"refused\",\"abort\":\"0x06090031\","
                        "\"reason\":\""),
        std::string::npos)
        << result.out;
    EXPECT_NE(result.err.find("nodevik: node 5: 4 written, 1 same, 1 refused\n"), std::string::npos)
        << result.err;
}

TEST_F(Configure, TellsAValueThatReadsOtherwiseThanWritten) {
    ScriptedNode node;
    fill(node);
    node.script = [&node](unsigned int, const ScriptedNode::Data&, ScriptedNode::Answers&) {
        node.sdo.objects[0x200000] = {3, 0};
    };
    node.start();
    const ChildResult result = configure(node, dcf());
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.out.find("0x2000:0    refused      -7  Speed: reads otherwise after it was written\n"),
              std::string::npos)
        << result.out;
}

TEST_F(Configure, IsNotMisledByANodeThatRepeatsItselfOrTalksOfOtherThings) {
    ScriptedNode node;
    fill(node);
    node.script = [](unsigned int, const ScriptedNode::Data&, ScriptedNode::Answers& answers) {
        ScriptedNode::Answers more;
        for (const ScriptedNode::Data& answer : answers) {
            ScriptedNode::Data foreign = answer;
            foreign[3] = static_cast<std::uint8_t>(foreign[3] + 1);
            more.insert(more.end(), {foreign, answer, answer});
        }
        answers = more;
    };
    node.start();
    const ChildResult result = configure(node, dcf());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, all_written);
    EXPECT_EQ(changing(node.stop()), all_writes);
}

TEST_F(Configure, EndsWith3AndTellsHowFarItCameAtWhicheverStepTheNodeFallsSilent) {
    unsigned int last = 0;
    {
        ScriptedNode node;
        fill(node);
        node.start();
        configure(node, dcf());
        last = node.requests();
    }
    ASSERT_GT(last, 20U);
    for (unsigned int step = 1; step <= last; ++step) {
        ScriptedNode node;
        fill(node);
        node.silent_from = step;
        node.start();
        const ChildResult result = configure(node, dcf(), {}, "40");
        EXPECT_EQ(result.status, 3) << step;
        EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 6) << result.out;
        EXPECT_NE(result.err.find(": The node does not answer"), std::string::npos) << result.err;
        const Frames frames = node.stop();
        const bool is_told =
            result.err.find(
                "TPDO 1 is neither set up nor as it was, and may be switched off: set it up again") !=
            std::string::npos;
        const bool is_whole = node.value(0x1800, 1) == 0x185 || node.value(0x1800, 1) == 0x285;
        EXPECT_TRUE(is_told || is_whole) << step << result.err;
        // An abort is all that is sent to a node that has only been asked.
        EXPECT_TRUE(!is_told || changing(frames).size() > 1) << step << result.err;
        expect_requests_alone(frames);
    }
}

TEST_F(Configure, SendsNothingOfAFileThatIsNotToBeTrusted) {
    ScriptedNode node;
    fill(node);
    node.start();
    const auto refused = [&](const std::string& from, const std::string& to, int status,
                             const std::string& message) {
        DcfFile file;
        file.change(from, to);
        const ChildResult result = configure(node, file.path());
        EXPECT_EQ(result.status, status) << to;
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    };
    refused("ParameterValue=500", "ParameterValue=often", 5, "; nothing is sent before this is mended");
    refused("ParameterValue=500", "ParameterValue=70000", 5, "; nothing is sent before this is mended");
    refused("ParameterValue=500", "ParameterValue=9001", 5,
            "0x1017:0: the value '9001' is above the high limit 9000");
    refused("DataType=3", "DataType=0x77", 5, "; nothing is sent before this is mended");
    refused("NodeID=5", "NodeID=five", 5, "; nothing is sent before this is mended");
    refused("NodeID=5", "NodeID=6", 2, " is for node 6, not for 5; 'nodevik eds dcf ");
    const ChildResult missing = configure(node, "/no/such");
    expect_failure(missing, 5, "/no/such: cannot be read: No such file or directory");
    EXPECT_EQ(node.stop(), Frames{});
}

TEST_F(Configure, GoesOnWithAFileWhoseErrorsAreElsewhere) {
    ScriptedNode node;
    fill(node);
    node.start();
    file().change("[ManufacturerObjects]\nSupportedObjects=1\n",
                  "[ManufacturerObjects]\nSupportedObjects=2\n2=0x2999\n");
    const ChildResult result = configure(node, dcf());
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, all_written);
    EXPECT_EQ(result.err, "nodevik: " + dcf() +
                              " has errors, and what cannot be used is passed over; 'nodevik eds check " +
                              dcf() + "' tells more\nnodevik: node 5: 5 written, 1 same\n");
}

TEST_F(Configure, EndsAtASignalWithWhatItHasAndWithThePdoWhole) {
    // The requests at which the signal comes: while it reads, while the PDO is being set up, behind it. A machine that
    // is busy may not let the node answer in the moment that it has; then the PDO is named.
    for (const unsigned int step : {2U, 9U, 11U, 13U, 19U}) {
        bool is_whole = false;
        for (int attempt = 0; attempt < 200 && !is_whole; ++attempt) {
            ScriptedNode node;
            fill(node);
            RunningProgram run({NODEVIK, "--udp", node.bus(), "--timeout", "60000", "configure", "5", dcf()});
            node.signal_at(step, run.process());
            node.start();
            EXPECT_EQ(run.end(), 130) << step;
            const Frames frames = node.stop();
            const std::string text = run.out();
            EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 6) << text;
            EXPECT_NE(text.find("not-reached"), std::string::npos) << step << "\n" << text;
            expect_requests_alone(frames);
            const bool is_named =
                run.err().find("TPDO 1 is neither set up nor as it was") != std::string::npos;
            is_whole = (node.value(0x1800, 1) == 0x185 && node.value(0x1A00, 1) == 0x60000108) ||
                       (node.value(0x1800, 1) == 0x285 && node.value(0x1A00, 1) == 0x60000208);
            EXPECT_TRUE(is_whole || is_named) << step << run.err();
            is_whole = is_whole && !is_named;
        }
        EXPECT_TRUE(is_whole) << step;
    }
}
