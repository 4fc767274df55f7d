// nodevik pdo: the PDOs that it shows, and how it sets them up.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "tests/support/runningprogram.h"
#include "tests/tools/scriptednode.h"
#include "tests/tools/simulatedbus.h"

namespace {

const std::string description_text =
    "[MandatoryObjects]\nSupportedObjects=1\n1=0x1000\n"
    "[1000]\nParameterName=Device type\nObjectType=7\nDataType=7\nAccessType=ro\nDefaultValue=0x191\n"
    "[OptionalObjects]\nSupportedObjects=3\n1=0x1801\n2=0x1A01\n3=0x6000\n"
    "[1801]\nParameterName=TPDO 2\nObjectType=9\nSubNumber=2\n"
    "[1801sub0]\nParameterName=Count\nObjectType=7\nDataType=5\nAccessType=ro\nDefaultValue=2\n"
    "[1801sub1]\nParameterName=COB-ID\nObjectType=7\nDataType=7\nAccessType=rw\n"
    "[1A01]\nParameterName=Mapping 2\nObjectType=9\nSubNumber=1\n"
    "[1A01sub0]\nParameterName=Count\nObjectType=7\nDataType=5\nAccessType=rw\n"
    "[6000]\nParameterName=Inputs\nObjectType=8\nSubNumber=3\n"
    "[6000sub0]\nParameterName=Count\nObjectType=7\nDataType=5\nAccessType=ro\nDefaultValue=2\n"
    "[6000sub1]\nParameterName=Level\nObjectType=7\nDataType=6\nAccessType=ro\nPDOMapping=1\n"
    "[6000sub2]\nParameterName=Alarm\nObjectType=7\nDataType=1\nAccessType=ro\nPDOMapping=1\n";

// A node with an RPDO, a TPDO that is on, and one that is off.
void fill(ScriptedNode& node) {
    node.add(0x1400, 1, 0x205, 4);
    node.add(0x1400, 2, 254, 1);
    node.add(0x1600, 0, 0, 1);
    node.add(0x1801, 1, 0x40000285, 4);
    node.add(0x1801, 2, 1, 1);
    node.add(0x1801, 3, 25, 2);
    node.add(0x1801, 5, 500, 2);
    node.add(0x1A01, 0, 2, 1);
    node.add(0x1A01, 1, 0x60000110, 4);
    node.add(0x1A01, 2, 0x60000201, 4);
    node.add(0x1802, 1, 0x80000385, 4);
    node.add(0x1802, 2, 255, 1);
    node.add(0x1A02, 0, 0, 1);
    node.add(0x1A02, 1, 0, 4);
    node.add(0x6000, 1, 0, 2);
    node.add(0x6000, 2, 0, 1);
    node.add(0x6001, 0, 0, 9);
}

ChildResult pdo(const ScriptedNode& node, const std::vector<std::string>& words,
                const char* timeout_ms = "60000") {
    std::vector<std::string> all{NODEVIK, "--udp", node.bus(), "--timeout", timeout_ms, "pdo"};
    all.insert(all.end(), words.begin(), words.end());
    return run_program(all);
}

const std::vector<std::string> second_tpdo{"set", "5", "tpdo", "2", "0x385", "255", "0x6000:2/8", "0x6000:1"};

// What is written to set it up: bit 30 of the identifier stays.
const Frames second_tpdo_writes{"605 8 23 01 18 01 85 02 00 c0", "605 8 2f 01 18 02 ff 00 00 00",
                                "605 8 2f 01 1a 00 00 00 00 00", "605 8 23 01 1a 01 08 02 00 60",
                                "605 8 23 01 1a 02 10 01 00 60", "605 8 2f 01 1a 00 02 00 00 00",
                                "605 8 23 01 18 01 85 03 00 40"};

void expect_second_tpdo_as_it_was(ScriptedNode& node) {
    EXPECT_EQ(node.value(0x1801, 1), 0x40000285U);
    EXPECT_EQ(node.value(0x1801, 2), 1U);
    EXPECT_EQ(node.value(0x1A01, 0), 2U);
    EXPECT_EQ(node.value(0x1A01, 1), 0x60000110U);
    EXPECT_EQ(node.value(0x1A01, 2), 0x60000201U);
}

}  // namespace

TEST(PdoList, HasALineForEachPdoOfTheNode) {
    ScriptedNode node;
    fill(node);
    node.start();
    expect_done(pdo(node, {"list", "5"}),
                "rpdo1    0x205  on   type 254\n"
                "tpdo2    0x285  on   type 1  inhibit 2500 us  event 500 ms  0x6000:1/16, 0x6000:2/1\n"
                "tpdo3    0x385  off  type 255\n");
    EXPECT_EQ(changing(node.stop()), Frames{});
    // All numbers of both kinds are asked for, and what belongs to those that are there.
    EXPECT_EQ(node.requests(), 2 * 512 + 3 * 4 + 2U);
}

TEST(PdoList, HasAnObjectForEachPdoInJson) {
    ScriptedNode node;
    fill(node);
    node.start();
    expect_done(
        pdo(node, {"list", "5", "--json"}),
        "{\"node\":5,\"pdo\":\"rpdo\",\"number\":1,\"id\":\"0x205\",\"valid\":true,\"type\":254,"
        "\"inhibit_us\":null,\"event_ms\":null,\"objects\":[]}\n"
        "{\"node\":5,\"pdo\":\"tpdo\",\"number\":2,\"id\":\"0x285\",\"valid\":true,\"type\":1,"
        "\"inhibit_us\":2500,\"event_ms\":500,\"objects\":[{\"index\":\"0x6000\",\"sub\":1,\"bits\":16},"
        "{\"index\":\"0x6000\",\"sub\":2,\"bits\":1}]}\n"
        "{\"node\":5,\"pdo\":\"tpdo\",\"number\":3,\"id\":\"0x385\",\"valid\":false,\"type\":255,"
        "\"inhibit_us\":null,\"event_ms\":null,\"objects\":[]}\n");
}

TEST(PdoList, AsksForThePdosOfADescriptionAndNamesTheirObjects) {
    const TemporaryFile eds;
    eds.write(description_text);
    ScriptedNode node;
    fill(node);
    node.sdo.objects[0x180101] = {0x45, 0x23, 0x01, 0x20};  // 29 bits
    node.start();
    expect_done(pdo(node, {"list", "5", "--eds", eds.path()}),
                "tpdo2    0x00012345  on   type 1  inhibit 2500 us  event 500 ms  0x6000:1/16 Inputs/Level, "
                "0x6000:2/1 Inputs/Alarm\n");
    EXPECT_EQ(node.requests(), 7U);
    EXPECT_NE(pdo(node, {"list", "5", "--eds", eds.path(), "--json"})
                  .out.find("{\"index\":\"0x6000\",\"sub\":2,\"bits\":1,\"name\":\"Inputs/Alarm\"}"),
              std::string::npos);
}

TEST(PdoList, SaysSoWhenThereIsNone) {
    const TemporaryFile eds;
    eds.write(description_text);
    ScriptedNode node;
    node.add(0x1000, 0, 0, 4);
    node.start();
    const ChildResult none = pdo(node, {"list", "5"});
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(none.err, "nodevik: node 5 has no PDO\n");
    EXPECT_EQ(pdo(node, {"list", "5", "--eds", eds.path()}).err,
              "nodevik: node 5 has no PDO of those in " + eds.path() + "\n");
}

TEST(PdoList, IsNotLedAstrayByACountThatNoPdoHas) {
    ScriptedNode node;
    fill(node);
    node.sdo.objects[0x1A0100] = {255};
    node.start();
    const ChildResult result = pdo(node, {"list", "5"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 3) << result.out;
}

TEST(PdoList, EndsWith1WhenTheNodeRefuses) {
    ScriptedNode node;
    fill(node);
    node.refusal = [](const std::string& frame) {
        return frame.find(" 01 1a 00 ") != std::string::npos ? 0x08000022U : 0U;
    };
    node.start();
    const ChildResult result = pdo(node, {"list", "5"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "rpdo1    0x205  on   type 254\n");
    EXPECT_NE(result.err.find("nodevik: node 5, 0x1A01:0: the node refuses: "), std::string::npos)
        << result.err;
}

TEST(PdoList, EndsWith3AtWhicheverStepTheNodeFallsSilent) {
    const TemporaryFile eds;
    eds.write(description_text);
    for (unsigned int step = 1; step <= 7; ++step) {
        ScriptedNode node;
        fill(node);
        node.silent_from = step;
        node.start();
        const ChildResult result = pdo(node, {"list", "5", "--eds", eds.path()}, "40");
        EXPECT_EQ(result.status, 3) << step;
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find("no answer within 40 ms"), std::string::npos) << result.err;
    }
}

TEST(PdoList, EndsAtASignalWithThePdosSoFar) {
    ScriptedNode node;
    fill(node);
    RunningProgram run({NODEVIK, "--udp", node.bus(), "--timeout", "60000", "pdo", "list", "5"});
    node.signal_at(40, run.process());
    node.start();
    EXPECT_EQ(run.end(), 130);
    EXPECT_EQ(run.out(), "rpdo1    0x205  on   type 254\n");
    EXPECT_EQ(run.err(), "");
    EXPECT_LE(node.requests(), 42U);
}

TEST(PdoList, ShowsThoseOfTheSimulator) {
    const SimulatedBus nodes(NODEVIK, NODE_SIMULATOR, {"--nodes", "5,6"});
    const ChildResult result = nodes.run_patiently({"pdo", "list", "6"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 8) << result.out;
    EXPECT_NE(
        result.out.find("tpdo1    0x186  on   type 1  0x6000:1/8, 0x6000:2/8, 0x6000:3/8, 0x6000:4/8\n"),
        std::string::npos)
        << result.out;
    expect_requests_alone(nodes.heard(), "606 8 ");
}

TEST(PdoSet, WritesInTheOrderThatNodesTakeAndNothingElse) {
    ScriptedNode node;
    fill(node);
    node.start();
    expect_done(pdo(node, second_tpdo), "");
    EXPECT_EQ(changing(node.stop()), second_tpdo_writes);
}

TEST(PdoSet, WritesNothingThatIsThereAlready) {
    ScriptedNode node;
    fill(node);
    node.start();
    expect_done(pdo(node, second_tpdo), "");
    EXPECT_EQ(pdo(node, {"set", "5", "tpdo", "2", "0x385", "255", "0x6000:2/8", "0x6000:1", "--json"}).out,
              "{\"index\":\"0x1801\",\"sub\":1,\"result\":\"same\",\"abort\":null}\n"
              "{\"index\":\"0x1801\",\"sub\":2,\"result\":\"same\",\"abort\":null}\n"
              "{\"index\":\"0x1A01\",\"sub\":0,\"result\":\"same\",\"abort\":null}\n"
              "{\"index\":\"0x1A01\",\"sub\":1,\"result\":\"same\",\"abort\":null}\n"
              "{\"index\":\"0x1A01\",\"sub\":2,\"result\":\"same\",\"abort\":null}\n");
    EXPECT_EQ(changing(node.stop()), second_tpdo_writes);
}

TEST(PdoSet, KnowsTheBitsOfAnObject) {
    const TemporaryFile eds;
    eds.write(description_text);
    const auto mapped = [&eds](const std::string& object, bool described) {
        ScriptedNode node;
        fill(node);
        node.start();
        std::vector<std::string> words{"set", "5", "rpdo", "1", "0x205", "255", object};
        if (described) {
            words.insert(words.end(), {"--eds", eds.path()});
        }
        const ChildResult result = pdo(node, words);
        node.stop();
        return result.status == 0 ? node.value(0x1600, 1) : 0;
    };
    EXPECT_EQ(mapped("0x6000:1", false), 0x60000110U);     // as long as the node's value
    EXPECT_EQ(mapped("inputs/level", true), 0x60000110U);  // by the type
    EXPECT_EQ(mapped("0x6000:2", true), 0x60000201U);      // a BOOLEAN
    EXPECT_EQ(mapped("0x6000:2/8", true), 0x60000208U);    // as it is said
    EXPECT_EQ(mapped("5", false), 0x00050008U);            // a place holder, UNSIGNED8
}

TEST(PdoSet, SwitchesAPdoOff) {
    ScriptedNode node;
    fill(node);
    node.start();
    expect_done(pdo(node, {"set", "5", "tpdo", "2", "0x80000285", "1", "0x6000:1", "0x6000:2/1"}), "");
    node.stop();
    EXPECT_EQ(node.value(0x1801, 1), 0xC0000285U);
    EXPECT_EQ(node.value(0x1A01, 0), 2U);
}

TEST(PdoSet, LeavesThePdoAsItWasWhicheverStepTheNodeRefuses) {
    for (const std::string& step : second_tpdo_writes) {
        ScriptedNode node;
        fill(node);
        bool is_refused = false;
        node.refusal = [&](const std::string& frame) {
            if (is_refused || frame != step) {
                return 0U;
            }
            is_refused = true;
            return 0x06040041U;
        };
        node.start();
        const ChildResult result = pdo(node, second_tpdo);
        node.stop();
        const std::string object = "0x" +
                                   std::string(step[12] == '1' ? (step[13] == 'a' ? "1A01:" : "1801:") : "") +
                                   std::string(1, step[16]);
        expect_failure(
            result, 1,
            "node 5, " + object + ": Object cannot be mapped to the PDO. (0x06040041); the PDO is as it was");
        EXPECT_TRUE(is_refused) << step;
        expect_second_tpdo_as_it_was(node);
    }
}

TEST(PdoSet, LeavesAPdoThatIsOffAsItWas) {
    ScriptedNode node;
    fill(node);
    node.refusal = [](const std::string& frame) {
        return frame.rfind("605 8 23 02 1a 01 10 01 00 60", 0) == 0 ? 0x06040041U : 0U;
    };
    node.start();
    expect_failure(
        pdo(node, {"set", "5", "tpdo", "3", "0x385", "255", "0x6000:1"}), 1,
        "node 5, 0x1A02:1: Object cannot be mapped to the PDO. (0x06040041); the PDO is as it was");
    node.stop();
    EXPECT_EQ(node.value(0x1802, 1), 0x80000385U);
    EXPECT_EQ(node.value(0x1A02, 0), 0U);
}

TEST(PdoSet, TellsWhenThePdoCannotBePutBack) {
    ScriptedNode node;
    fill(node);
    bool is_refused = false;
    node.refusal = [&](const std::string& frame) {
        is_refused = is_refused || frame == second_tpdo_writes[4];
        return is_refused && frame.rfind("605 8 2", 0) == 0 ? 0x08000022U : 0U;
    };
    node.start();
    const ChildResult result = pdo(node, second_tpdo);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.find("as it was ("), std::string::npos) << result.err;
    EXPECT_EQ(result.err.find("; the PDO is as it was"), std::string::npos) << result.err;
    EXPECT_NE(
        result.err.find(
            "nodevik: TPDO 2 is neither set up nor as it was, and may be switched off: set it up again\n"),
        std::string::npos)
        << result.err;
}

TEST(PdoSet, TellsWhenTheNodeHasSomethingElseAfterwards) {
    ScriptedNode node;
    fill(node);
    node.script = [&node](unsigned int, const ScriptedNode::Data&, ScriptedNode::Answers&) {
        node.sdo.objects[0x180102] = {7};
    };
    node.start();
    expect_failure(pdo(node, second_tpdo), 1, "node 5, 0x1801:2: reads otherwise after it was written");
}

TEST(PdoSet, EndsWith1WhenTheNodeHasNoSuchPdoOrObject) {
    ScriptedNode node;
    fill(node);
    node.start();
    expect_failure(pdo(node, {"set", "5", "tpdo", "9", "0x385", "255", "0x6000:1"}), 1,
                   "node 5, 0x1808:1: the node refuses: Object does not exist in the object dictionary. "
                   "(0x06020000)");
    expect_failure(pdo(node, {"set", "5", "tpdo", "2", "0x385", "255", "0x7000"}), 1,
                   "node 5, 0x7000:0: the node refuses: Object does not exist in the object dictionary. "
                   "(0x06020000)");
    EXPECT_EQ(changing(node.stop()), Frames{});
}

TEST(PdoSet, EndsWith2BeforeAnythingIsWrittenWhenTheCommandLineIsWrong) {
    const TemporaryFile eds;
    eds.write(description_text);
    ScriptedNode node;
    fill(node);
    node.start();
    const auto wrong = [&](const std::vector<std::string>& words, const std::string& message) {
        std::vector<std::string> all{"set", "5"};
        all.insert(all.end(), words.begin(), words.end());
        expect_failure(pdo(node, all), 2, message);
    };
    const std::string cob_id_right =
        "' is no COB-ID of a PDO; right are 0x181 to 0x57F and others that nothing else has, and with "
        "0x80000000 "
        "added a PDO that is off";
    for (const char* id : {"0", "0x7F", "0x101", "0x180", "0x581", "0x605", "0x6E0", "0x705", "0x7FF",
                           "0x800", "0x20000185", "-1", "185x"}) {
        wrong({"tpdo", "2", id, "255", "0x6000:1"}, "'" + std::string(id) + cob_id_right);
    }
    for (const char* type : {"241", "251", "256", "fast"}) {
        wrong({"tpdo", "2", "0x185", type, "0x6000:1"},
              "'" + std::string(type) +
                  "' is no transmission type; right are 0 to 240 with SYNC, 252 and 253 on remote requests, "
                  "254 and "
                  "255 by events");
    }
    wrong({"tpdo", "2", "0x185", "255", "0x6000:1/0"},
          "'0x6000:1/0' is no object of a PDO; right is 0x6000:1/8, with 1 to 64 bits");
    wrong({"tpdo", "2", "0x185", "255", "level"},
          "'level' is no object; right are 0x1018, 0x1018:1, and with --eds a name");
    wrong({"tpdo", "2", "0x185", "255", "inputs", "--eds", eds.path()},
          "'inputs' has several entries; name one, such as 0x6000:1");
    wrong({"tpdo", "2", "0x185", "255", "0x6000:1/60", "0x6000:2/5"},
          "the objects have 65 bits; a PDO has room for 64");
    wrong({"tpdo", "2", "0x185", "255", "0x6001"},
          "how many bits 0x6001:0 has in a PDO is not known; say it, such as 0x6001:0/16, or name a "
          "description with "
          "--eds");
    wrong({"pdo", "2", "0x185", "255", "0x6000:1"},
          "DIRECTION: pdo not in {tpdo,rpdo}; 'nodevik pdo set --help' tells more");
    EXPECT_EQ(pdo(node, {"set", "5", "tpdo", "513", "0x185", "255", "0x6000:1"}).status, 2);
    EXPECT_EQ(pdo(node, {"set", "5", "tpdo", "2", "0x185", "255"}).status, 2);
    EXPECT_EQ(changing(node.stop()), Frames{});
}

TEST(PdoSet, EndsWith3AtWhicheverStepTheNodeFallsSilent) {
    unsigned int last = 0;
    {
        ScriptedNode node;
        fill(node);
        node.start();
        pdo(node, second_tpdo);
        last = node.requests();
    }
    ASSERT_GT(last, 14U);
    for (unsigned int step = 1; step <= last; ++step) {
        ScriptedNode node;
        fill(node);
        node.silent_from = step;
        node.start();
        const ChildResult result = pdo(node, second_tpdo, "40");
        EXPECT_EQ(result.status, 3) << step << result.err;
        EXPECT_EQ(result.out, "");
        const Frames frames = changing(node.stop());
        const bool is_told = result.err.find("TPDO 2 is neither set up nor as it was") != std::string::npos;
        const bool is_whole = node.value(0x1801, 1) == 0x40000285 || node.value(0x1801, 1) == 0x40000385;
        EXPECT_TRUE(is_told || is_whole) << step << result.err;
        // The first write is an abort when the node fell silent while it was only asked.
        EXPECT_TRUE(!is_told || frames.size() > 1) << step << result.err;
    }
}

TEST(PdoSet, FinishesThePdoAtASignal) {
    // A machine that is busy may not let the node answer in the moment that it has; then the PDO is named.
    for (const unsigned int step : {3U, 8U, 10U, 13U}) {
        bool is_finished = false;
        for (int attempt = 0; attempt < 200 && !is_finished; ++attempt) {
            ScriptedNode node;
            fill(node);
            std::vector<std::string> words{NODEVIK, "--udp", node.bus(), "--timeout", "60000", "pdo"};
            words.insert(words.end(), second_tpdo.begin(), second_tpdo.end());
            RunningProgram run(words);
            node.signal_at(step, run.process());
            node.start();
            EXPECT_EQ(run.end(), 130) << step;
            expect_requests_alone(node.stop());
            is_finished =
                node.value(0x1801, 1) == (step == 3 ? 0x40000285U : 0x40000385U) && run.err().empty();
            const bool is_named =
                run.err().find("TPDO 2 is neither set up nor as it was") != std::string::npos;
            EXPECT_TRUE(is_finished || is_named) << step << run.err();
        }
        EXPECT_TRUE(is_finished) << step;
    }
}
