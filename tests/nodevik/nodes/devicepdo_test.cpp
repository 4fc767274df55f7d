#include "nodevik/nodes/devicepdo.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using Direction = DescribedPdo::Direction;

std::string member(const std::string& index, int subindex, const std::string& name, const std::string& type,
                   const std::string& value) {
    return "[" + index + "sub" + std::to_string(subindex) + "]\nParameterName=" + name +
           "\nDataType=" + type + "\nAccessType=rw\nDefaultValue=" + value + "\n";
}

std::string object(const std::string& index, const std::string& name, const std::string& type) {
    return "[" + index + "]\nParameterName=" + name + "\nDataType=" + type +
           "\nAccessType=rw\nPDOMapping=1\n";
}

// A drive: TPDO 1 with status, torque, two bits, a place holder of six bits and a float's half; RPDO 2 with a command.
const std::string drive =
    object("6041", "Statusword", "6") + object("6077", "Torque", "3") + object("2001", "Ready", "1") +
    object("2002", "Warm", "1") + object("2003", "Angle", "8") + object("6040", "Controlword", "6") +
    object("1000", "Device type", "7") + "[1800]\nParameterName=T1\nObjectType=9\n" +
    member("1800", 0, "n", "5", "2") + member("1800", 1, "id", "7", "$NODEID+0x40000180") +
    member("1800", 2, "type", "5", "3") + "[1A00]\nParameterName=M1\nObjectType=9\n" +
    member("1A00", 0, "n", "5", "6") + member("1A00", 1, "1", "7", "0x60410010") +
    member("1A00", 2, "2", "7", "0x60770010") + member("1A00", 3, "3", "7", "0x20010001") +
    member("1A00", 4, "4", "7", "0x20020001") + member("1A00", 5, "5", "7", "0x00050006") +
    member("1A00", 6, "6", "7", "0x20030018") + "[1401]\nParameterName=R2\nObjectType=9\n" +
    member("1401", 0, "n", "5", "2") + member("1401", 1, "id", "7", "$NODEID+0x300") +
    member("1401", 2, "type", "5", "254") + "[1601]\nParameterName=N2\nObjectType=9\n" +
    member("1601", 0, "n", "5", "1") + member("1601", 1, "1", "7", "0x60400010");

DeviceDescription read(const std::string& text) {
    DeviceDescription description;
    EXPECT_TRUE(description.parse(text, "drive.eds"));
    return description;
}

const DescribedPdo& only(const std::vector<DescribedPdo>& pdos) {
    EXPECT_EQ(pdos.size(), 1U);
    return pdos.at(0);
}

TEST(DescribedPdo, HasWhatTheFileTells) {
    const auto description = read(drive);
    const auto pdos = described_pdos(description, 5);
    ASSERT_EQ(pdos.size(), 2U);
    EXPECT_EQ(pdos[0].direction, Direction::receive);
    EXPECT_EQ(pdos[0].number, 2U);
    const DescribedPdo* tpdo = find_pdo(pdos, Direction::transmit, 1);
    ASSERT_NE(tpdo, nullptr);
    EXPECT_EQ(tpdo->cob_id, 0x40000185U);
    EXPECT_TRUE(tpdo->valid);
    EXPECT_EQ(tpdo->transmission_type, 3);
    EXPECT_EQ(tpdo->bits, 64U);
    EXPECT_EQ(tpdo->fault, "");
    ASSERT_EQ(tpdo->items.size(), 6U);
    EXPECT_EQ(tpdo->items[1].index, 0x6077);
    EXPECT_EQ(tpdo->items[1].bits, 16U);
    EXPECT_EQ(tpdo->items[1].position, 16U);
    EXPECT_EQ(tpdo->items[1].entry, description.entry("Torque"));
    EXPECT_EQ(tpdo->items[4].entry, nullptr);
    EXPECT_EQ(tpdo->items[5].position, 40U);
    EXPECT_EQ(find_pdo(pdos, Direction::receive, 1), nullptr);
}

TEST(DescribedPdo, FillsThePdoOfAMaster) {
    const auto description = read(drive);
    const auto pdos = described_pdos(description, 5);
    PDO pdo;
    EXPECT_EQ(find_pdo(pdos, Direction::transmit, 1)->fill(pdo), "");
    EXPECT_EQ(pdo.get_cobid(), 0x185U);
    EXPECT_EQ(pdo.obj_info.transmission_type, 3);
    EXPECT_EQ(pdo.obj_info.mappingcount, 6);
    EXPECT_EQ(pdo.obj_info.pdo_mappings[1], 0x60770010);
    EXPECT_EQ(pdo.get_len(), 8U);
    EXPECT_EQ(find_pdo(pdos, Direction::receive, 2)->fill(pdo), "");
    EXPECT_EQ(pdo.get_cobid(), 0x305U);
    EXPECT_EQ(pdo.get_len(), 2U);
}

TEST(DescribedPdo, FillsNothingThatWouldNotBeRight) {
    struct Row {
        const char* id;
        const char* count;
        const char* entry;
        const char* reason;
    };
    for (const Row& row :
         {Row{"0x80000185", "1", "0x60410010", "is not valid"}, Row{"", "1", "0x60410010", "is not valid"},
          Row{"0x20000185", "1", "0x60410010", "has the COB-ID 0x185"},
          Row{"0x180", "1", "0x60410010", "has the COB-ID 0x180"},
          Row{"0x580", "1", "0x60410010", "has the COB-ID 0x580"},
          Row{"0x185", "1", "0x60410041", "maps 65 bits"},
          Row{"0x185", "65", "0x60410010", "maps 65 objects"},
          Row{"0x185", "2", "0x60410010", "has no mapping entry 2"}}) {
        const auto description =
            read(object("6041", "Statusword", "6") + "[1800]\nParameterName=T1\nObjectType=9\n" +
                 member("1800", 1, "id", "7", row.id) + "[1A00]\nParameterName=M1\nObjectType=9\n" +
                 member("1A00", 0, "n", "5", row.count) + member("1A00", 1, "1", "7", row.entry));
        const auto pdos = described_pdos(description, 5);
        PDO pdo(0x181);
        EXPECT_EQ(only(pdos).fill(pdo), row.reason);
        EXPECT_EQ(pdo.get_cobid(), 0x181U);
        EXPECT_EQ(pdo.obj_info.mappingcount, 0);
    }
}

TEST(DescribedPdo, MapsVariablesByTheirObjectsNames) {
    const auto description = read(drive);
    const auto pdos = described_pdos(description, 5);
    const DescribedPdo& tpdo = *find_pdo(pdos, Direction::transmit, 1);
    PDO pdo;
    unsigned short status = 0;
    short torque = 0;
    bool ready = false;
    int warm = 0;
    ASSERT_EQ(tpdo.fill(pdo), "");
    EXPECT_EQ(tpdo.map(pdo, "statusword", status), "");
    EXPECT_EQ(tpdo.map(pdo, "Torque", torque), "");
    EXPECT_EQ(tpdo.map(pdo, "Ready", ready), "");
    EXPECT_EQ(tpdo.map(pdo, "Warm", warm), "");
    unsigned char frame[8] = {0x37, 0x02, 0xFD, 0xFF, 0x02, 0, 0, 0};
    pdo.create_tpdo(frame);
    EXPECT_EQ(status, 0x237);
    EXPECT_EQ(torque, -3);
    EXPECT_FALSE(ready);
    EXPECT_EQ(warm, 1);
}

TEST(DescribedPdo, MapsWideAndRealVariables) {
    const auto description =
        read(object("2000", "Counter", "0x1B") + object("2001", "Angle", "8") + object("2002", "Gap", "5") +
             "[1800]\nParameterName=T\nObjectType=9\n" + member("1800", 1, "id", "7", "0x181") +
             "[1801]\nParameterName=T\nObjectType=9\n" + member("1801", 1, "id", "7", "0x281") +
             "[1A00]\nParameterName=M\nObjectType=9\n" + member("1A00", 0, "n", "5", "1") +
             member("1A00", 1, "1", "7", "0x20000040") + "[1A01]\nParameterName=M\nObjectType=9\n" +
             member("1A01", 0, "n", "5", "2") + member("1A01", 1, "1", "7", "0x20020008") +
             member("1A01", 2, "2", "7", "0x20010020"));
    const auto pdos = described_pdos(description, 1);
    unsigned long long counter = 0;
    float angle = 0;
    char gap = 0;
    PDO first, second;
    ASSERT_EQ(pdos.at(0).fill(first), "");
    ASSERT_EQ(pdos.at(1).fill(second), "");
    EXPECT_EQ(pdos[0].map(first, "Counter", counter), "");
    EXPECT_EQ(pdos[1].map(second, "Angle", angle), "");
    EXPECT_EQ(pdos[1].map(second, "Gap", gap), "");
    unsigned char frame[8] = {7, 0, 0, 0xC0, 0x3F, 0, 0, 0x80};
    first.create_tpdo(frame);
    second.create_tpdo(frame);
    EXPECT_EQ(counter, 0x8000003FC0000007U);
    EXPECT_EQ(angle, 1.5F);
    EXPECT_EQ(gap, 7);
}

TEST(DescribedPdo, RefusesVariablesThatDoNotFitInsteadOfEndingTheProcess) {
    const auto description = read(drive);
    const auto pdos = described_pdos(description, 5);
    const DescribedPdo& tpdo = *find_pdo(pdos, Direction::transmit, 1);
    PDO pdo;
    ASSERT_EQ(tpdo.fill(pdo), "");
    short word = 0;
    unsigned short natural = 0;
    int wide = 0;
    float real = 0;
    double big = 0;
    EXPECT_EQ(tpdo.map(pdo, "Nobody", word), "is no object of the description, or several");
    EXPECT_EQ(tpdo.map(pdo, "Controlword", natural), "is not in the PDO");
    EXPECT_EQ(tpdo.map(pdo, "Statusword", wide), "has 16 bits from bit 0 on, the variable has 4 bytes");
    EXPECT_EQ(tpdo.map(pdo, "Angle", real), "has 24 bits from bit 40 on, the variable has 4 bytes");
    EXPECT_EQ(tpdo.map(pdo, "Statusword", word), "is UNSIGNED16, the variable is not");
    EXPECT_EQ(tpdo.map(pdo, "Torque", natural), "is INTEGER16, the variable is not");
    EXPECT_EQ(tpdo.map(pdo, "Ready", big), "is one bit, which goes to an integer of at most 4 bytes");
    EXPECT_EQ(pdo.mapCounter, 0);
    EXPECT_EQ(tpdo.map(pdo, "Torque", word), "");
    EXPECT_EQ(tpdo.map(pdo, "Torque", word), "overlaps a variable that is mapped already");
    while (pdo.mapCounter < 64) {
        pdo.mapbitcopy(0, word);
    }
    EXPECT_EQ(tpdo.map(pdo, "Statusword", natural), "finds 64 variables mapped already");
}

std::string names(const FrameNames& names, unsigned int id, std::vector<unsigned char> data) {
    return names.names(id, static_cast<unsigned int>(data.size()), data.data());
}

TEST(FrameNames, TellsTheObjectsOfAPdoWithTheirValues) {
    const auto description = read(drive);
    FrameNames frames;
    frames.add_node(5, description);
    EXPECT_EQ(names(frames, 0x185, {0x37, 0x02, 0xFD, 0xFF, 0x01, 0, 0, 0}),
              "Statusword=567, Torque=-3, Ready=1, Warm=0, Angle=000000");
    EXPECT_EQ(names(frames, 0x185, {0x37, 0x02, 0xFD}), "Statusword=567");
    EXPECT_EQ(names(frames, 0x305, {0x0F, 0x00}), "Controlword=15");
    EXPECT_EQ(names(frames, 0x186, {0x37, 0x02}), "");
    EXPECT_EQ(names(frames, 0x185, {}), "");
}

TEST(FrameNames, TellsTheObjectOfAnSdoAndItsValueWhenItIsThere) {
    const auto description = read(drive);
    FrameNames frames;
    frames.add_node(5, description);
    EXPECT_EQ(names(frames, 0x605, {0x40, 0x77, 0x60, 0, 0, 0, 0, 0}), "Torque");
    EXPECT_EQ(names(frames, 0x585, {0x4B, 0x77, 0x60, 0, 0xFD, 0xFF, 0, 0}), "Torque=-3");
    EXPECT_EQ(names(frames, 0x605, {0x2B, 0x40, 0x60, 0, 0x0F, 0, 0, 0}), "Controlword=15");
    EXPECT_EQ(names(frames, 0x585, {0x60, 0x40, 0x60, 0, 0, 0, 0, 0}), "Controlword");
    EXPECT_EQ(names(frames, 0x585, {0x80, 0x40, 0x60, 0, 0, 0, 2, 6}), "Controlword");
    EXPECT_EQ(names(frames, 0x605, {0xA4, 0x77, 0x60, 0, 0, 0, 0, 0}), "Torque");
    EXPECT_EQ(names(frames, 0x605, {0xC6, 0x77, 0x60, 0, 0, 0, 0, 0}), "Torque");
    EXPECT_EQ(names(frames, 0x585, {0x41, 0x00, 0x18, 1, 0, 0, 0, 0}), "T1/id");
    EXPECT_EQ(names(frames, 0x585, {0x41, 0x00, 0x18, 9, 0, 0, 0, 0}), "T1:9");
    EXPECT_EQ(names(frames, 0x605, {0x60, 0x40, 0x60, 0, 0, 0, 0, 0}), "");
    EXPECT_EQ(names(frames, 0x585, {0x00, 0x40, 0x60, 0, 0, 0, 0, 0}), "");
    EXPECT_EQ(names(frames, 0x585, {0x20, 0x40, 0x60, 0, 0, 0, 0, 0}), "");
    EXPECT_EQ(names(frames, 0x585, {0xA2, 0x40, 0x60, 0, 0, 0, 0, 0}), "");
    EXPECT_EQ(names(frames, 0x605, {0xC1, 0x40, 0x60, 0, 0, 0, 0, 0}), "");
    EXPECT_EQ(names(frames, 0x605, {0x40, 0x78, 0x60, 0, 0, 0, 0, 0}), "");
    EXPECT_EQ(names(frames, 0x605, {0x40, 0x77, 0x60, 0}), "");
    EXPECT_EQ(names(frames, 0x606, {0x40, 0x77, 0x60, 0, 0, 0, 0, 0}), "");
}

TEST(FrameNames, TellsObjectsOneByOneToo) {
    const auto description = read(drive);
    FrameNames frames;
    frames.add_node(5, description);
    const auto objects = [&frames](unsigned int id, std::vector<unsigned char> data) {
        return frames.objects(id, static_cast<unsigned int>(data.size()), data.data());
    };
    const auto process = objects(0x185, {0x37, 0x02, 0xFD, 0xFF});
    ASSERT_EQ(process.size(), 2U);
    EXPECT_EQ(process[0].index, 0x6041);
    EXPECT_EQ(process[1].name, "Torque");
    EXPECT_EQ(process[1].entry, description.entry("Torque"));
    EXPECT_EQ(process[1].value, (ObjectBytes{0xFD, 0xFF}));
    const auto answer = objects(0x585, {0x41, 0x00, 0x18, 1, 0, 0, 0, 0});
    ASSERT_EQ(answer.size(), 1U);
    EXPECT_EQ(answer[0].index, 0x1800);
    EXPECT_EQ(answer[0].subindex, 1);
    EXPECT_EQ(answer[0].name, "T1/id");
    EXPECT_EQ(answer[0].value, std::nullopt);
    const auto other = objects(0x585, {0x41, 0x00, 0x18, 9, 0, 0, 0, 0});
    ASSERT_EQ(other.size(), 1U);
    EXPECT_EQ(other[0].entry, nullptr);
    EXPECT_TRUE(objects(0x605, {0x40, 0x78, 0x60, 0, 0, 0, 0, 0}).empty());
    EXPECT_TRUE(objects(0x186, {0}).empty());
}

TEST(FrameNames, WhoTransmitsGivesTheNameAndANewDescriptionReplacesTheOld) {
    const auto sender =
        read(object("2000", "Sent", "5") + "[1800]\nParameterName=T\nObjectType=9\n" +
             member("1800", 1, "id", "7", "0x201") + "[1A00]\nParameterName=M\nObjectType=9\n" +
             member("1A00", 0, "n", "5", "1") + member("1A00", 1, "1", "7", "0x20000008"));
    const auto receiver =
        read(object("2000", "Received", "5") + "[1400]\nParameterName=T\nObjectType=9\n" +
             member("1400", 1, "id", "7", "0x201") + "[1600]\nParameterName=M\nObjectType=9\n" +
             member("1600", 0, "n", "5", "1") + member("1600", 1, "1", "7", "0x20000008"));
    FrameNames frames;
    frames.add_node(1, receiver);
    EXPECT_EQ(names(frames, 0x201, {7}), "Received=7");
    frames.add_node(2, sender);
    EXPECT_EQ(names(frames, 0x201, {7}), "Sent=7");
    frames.add_node(2, receiver);
    EXPECT_EQ(names(frames, 0x201, {7}), "Received=7");
    frames.add_node(0, sender);
    frames.add_node(128, sender);
    EXPECT_EQ(names(frames, 0x201, {7}), "Received=7");
}

}  // namespace
