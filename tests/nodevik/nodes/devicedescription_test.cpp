#include "nodevik/nodes/devicedescription.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using Entry = DeviceDescription::Entry;
using Object = DeviceDescription::Object;
using Severity = DescriptionFinding::Severity;
using Type = ObjectDataType;
using Texts = std::vector<std::string>;

// An object that is all right, for files of which another part is tested.
const std::string sound_object =
    "[1000]\nParameterName=Device "
    "type\nDataType=7\nAccessType=ro\n[MandatoryObjects]\nSupportedObjects=1\n1=0x1000\n";

DeviceDescription read(const std::string& text) {
    DeviceDescription description;
    EXPECT_TRUE(description.parse(text, "x.eds")) << text;
    return description;
}

// What is found in a file: its lines of text, without the file's name.
Texts findings_of(const DeviceDescription& description) {
    Texts texts;
    for (const DescriptionFinding& finding : description.findings()) {
        EXPECT_EQ(finding.text().rfind("x.eds:", 0), 0U);
        texts.push_back(finding.text().substr(6));
    }
    return texts;
}
Texts findings_of(const std::string& text) {
    return findings_of(read(text));
}

// A file with one variable, 2000, whose section has these lines after name, data type and access; findings are those of
// the variable's own lines, which begin with line 8.
std::string with_variable(const std::string& lines, const std::string& type = "5",
                          const std::string& access = "rw") {
    return "[ManufacturerObjects]\nSupportedObjects=1\n1=0x2000\n[2000]\nParameterName=Speed\nDataType=" +
           type + "\nAccessType=" + access + "\n" + lines;
}

const Entry& variable_of(const DeviceDescription& description) {
    const Entry* entry = description.entry(0x2000, 0);
    EXPECT_NE(entry, nullptr);
    static const Entry nothing;
    return entry == nullptr ? nothing : *entry;
}

// An array 2000 with members 0 and 1 whose types are given.
const std::string record =
    "[ManufacturerObjects]\nSupportedObjects=1\n1=0x2000\n"
    "[2000]\nParameterName=Motor\nObjectType=9\nSubNumber=3\n"
    "[2000sub0]\nParameterName=Highest subindex\nObjectType=7\nDataType=5\nAccessType=const\nDefaultValue=2\n"
    "[2000sub1]\nParameterName=Current\nObjectType=7\nDataType=0x0003\nAccessType=rwr\nPDOMapping="
    "1\nLowLimit=-100\n"
    "HighLimit=100\nDefaultValue=0\n"
    "[2000sub2]\nParameterName=Name\nObjectType=7\nDataType=0x0009\nAccessType=ro\nDefaultValue=\"left; "
    "outer\"\n";

TEST(DeviceDescription, ReadsAVariable) {
    const auto description = read(with_variable(
        "ObjectType=0x7\nDefaultValue=0x10\nLowLimit=1\nHighLimit=200\nPDOMapping=1\nObjFlags=3\n", "0x0005",
        "rww"));
    EXPECT_EQ(findings_of(description), Texts{});
    ASSERT_EQ(description.objects().size(), 1U);
    const Object& object = description.objects()[0];
    EXPECT_EQ(object.index, 0x2000);
    EXPECT_EQ(object.code, ObjectCode::variable);
    EXPECT_EQ(object.list, Object::List::manufacturer);
    EXPECT_EQ(object.name, "Speed");
    EXPECT_EQ(object.line, 4U);
    EXPECT_TRUE(object.is_single());
    ASSERT_EQ(object.entries.size(), 1U);
    const Entry& entry = object.entries[0];
    EXPECT_EQ(entry.index, 0x2000);
    EXPECT_EQ(entry.subindex, 0);
    EXPECT_EQ(entry.name, "Speed");
    EXPECT_EQ(entry.full_name(), "Speed");
    EXPECT_EQ(entry.type, Type::unsigned8);
    EXPECT_EQ(entry.access, ObjectAccess::read_write_output);
    EXPECT_TRUE(entry.pdo_mapping);
    EXPECT_EQ(entry.flags, 3U);
    EXPECT_EQ(entry.line, 4U);
    EXPECT_EQ(entry.default_text, "0x10");
    EXPECT_EQ(entry.default_value(), (ObjectBytes{0x10}));
    EXPECT_EQ(entry.value(), (ObjectBytes{0x10}));
    EXPECT_EQ(entry.low(), (ObjectBytes{1}));
    EXPECT_EQ(entry.high(), (ObjectBytes{200}));
}

TEST(DeviceDescription, ReadsARecordWithItsMembers) {
    const auto description = read(record);
    EXPECT_EQ(findings_of(description), Texts{});
    EXPECT_EQ(description.entry_count(), 3U);
    const Entry* current = description.entry(0x2000, 1);
    ASSERT_NE(current, nullptr);
    EXPECT_EQ(current->full_name(), "Motor/Current");
    EXPECT_EQ(current->type, Type::integer16);
    EXPECT_EQ(current->access, ObjectAccess::read_write_input);
    EXPECT_EQ(current->low(), (ObjectBytes{0x9C, 0xFF}));
    EXPECT_EQ(current->line, 14U);
    EXPECT_EQ(description.entry(0x2000, 2)->value(),
              (ObjectBytes{'l', 'e', 'f', 't', ';', ' ', 'o', 'u', 't', 'e', 'r'}));
    EXPECT_EQ(description.object(0x2000)->code, ObjectCode::record);
    EXPECT_FALSE(description.object(0x2000)->is_single());
    EXPECT_EQ(description.entry(0x2000, 3), nullptr);
    EXPECT_EQ(description.entry(0x2001, 0), nullptr);
    EXPECT_EQ(description.object(0x2001), nullptr);
}

TEST(DeviceDescription, OrdersObjectsAndMembersByNumber) {
    const auto description = read(
        "[6000]\nParameterName=a\nDataType=5\nAccessType=ro\n[2000]\nParameterName=b\nObjectType=8\n"
        "[2000subA]\nParameterName=c\nDataType=5\nAccessType=ro\n[1000]\nParameterName=d\nDataType="
        "7\nAccessType=ro\n"
        "[2000sub0]\nParameterName=e\nDataType=5\nAccessType=ro\n");
    ASSERT_EQ(description.objects().size(), 3U);
    EXPECT_EQ(description.objects()[0].index, 0x1000);
    EXPECT_EQ(description.objects()[1].index, 0x2000);
    EXPECT_EQ(description.objects()[2].index, 0x6000);
    ASSERT_EQ(description.objects()[1].entries.size(), 2U);
    EXPECT_EQ(description.objects()[1].entries[0].subindex, 0);
    EXPECT_EQ(description.objects()[1].entries[1].subindex, 10);
}

TEST(DeviceDescription, ReadsWhatTheFileTellsOfItself) {
    const auto description =
        read(sound_object +
             "[FileInfo]\nFileName=pump.eds\nFileVersion=1\nFileRevision=2\nEDSVersion=4.0\nDescription=A "
             "pump; small\n"
             "CreationTime=09:45AM\nCreationDate=05-13-2026\nCreatedBy=me\nModificationTime=10:00PM\n"
             "ModificationDate=05-14-2026\nModifiedBy=you\nLastEDS=old.eds\n[Comments]\nLines=2\nLine1="
             "first\nLine2= ;second\n"
             "[DummyUsage]\nDummy0001=0\nDummy0005=1\nDummy0007=1\n");
    EXPECT_EQ(findings_of(description), Texts{});
    const auto& info = description.file_info();
    EXPECT_EQ(info.file_name, "pump.eds");
    EXPECT_EQ(info.file_version, "1");
    EXPECT_EQ(info.file_revision, "2");
    EXPECT_EQ(info.eds_version, "4.0");
    EXPECT_EQ(info.description, "A pump; small");
    EXPECT_EQ(info.creation_time, "09:45AM");
    EXPECT_EQ(info.creation_date, "05-13-2026");
    EXPECT_EQ(info.created_by, "me");
    EXPECT_EQ(info.modification_time, "10:00PM");
    EXPECT_EQ(info.modification_date, "05-14-2026");
    EXPECT_EQ(info.modified_by, "you");
    EXPECT_EQ(info.last_eds, "old.eds");
    EXPECT_EQ(description.comments(), (Texts{"first", ";second"}));
    EXPECT_FALSE(description.has_dummy(1));
    EXPECT_TRUE(description.has_dummy(5));
    EXPECT_TRUE(description.has_dummy(7));
    EXPECT_FALSE(description.has_dummy(8));
    EXPECT_FALSE(description.is_dcf());
    EXPECT_EQ(description.node_id(), 0U);
    EXPECT_EQ(description.file(), "x.eds");
}

TEST(DeviceDescription, ReadsWhatTheFileTellsOfTheDevice) {
    const auto description = read(sound_object +
                                  "[DeviceInfo]\nVendorName=Acme\nVendorNumber=0x1F1\nProductName="
                                  "Pump\nProductNumber=2\nRevisionNumber=0x10002\n"
                                  "OrderCode=P-1\nBaudRate_10=0\nBaudRate_125=1\nBaudRate_1000="
                                  "1\nSimpleBootUpMaster=0\nSimpleBootUpSlave=1\n"
                                  "Granularity=8\nDynamicChannelsSupported=0\nGroupMessaging=1\nNrOfRXPDO="
                                  "4\nNrOfTXPDO=5\nLSS_Supported=1\n"
                                  "CompactPDO=0\n");
    EXPECT_EQ(findings_of(description), Texts{});
    const auto& info = description.device_info();
    EXPECT_EQ(info.vendor_name, "Acme");
    EXPECT_EQ(info.vendor_number, 0x1F1U);
    EXPECT_EQ(info.product_name, "Pump");
    EXPECT_EQ(info.product_number, 2U);
    EXPECT_EQ(info.revision_number, 0x10002U);
    EXPECT_EQ(info.order_code, "P-1");
    EXPECT_EQ(info.baud_rates_kbit, (std::vector<unsigned int>{125, 1000}));
    EXPECT_FALSE(info.simple_boot_up_master);
    EXPECT_TRUE(info.simple_boot_up_slave);
    EXPECT_EQ(info.granularity, 8U);
    EXPECT_FALSE(info.dynamic_channels);
    EXPECT_TRUE(info.group_messaging);
    EXPECT_EQ(info.receive_pdos, 4U);
    EXPECT_EQ(info.transmit_pdos, 5U);
    EXPECT_TRUE(info.lss);
    EXPECT_EQ(info.compact_pdo, 0U);
}

TEST(DeviceDescription, ReadsTheCommissioningUnderEachSpelling) {
    for (const char* name :
         {"DeviceComissioning", "DeviceCommissioning", "DeviceCommisioning", "devicecomissioning"}) {
        const auto description = read(sound_object + "[" + name +
                                      "]\nNodeID=0x05\nNodeName=left\nBaudrate=500\nNetNumber=3\n"
                                      "NetworkName=deck\nCANopenManager=1\nLSS_SerialNumber=77\n");
        EXPECT_EQ(findings_of(description), Texts{});
        EXPECT_TRUE(description.is_dcf());
        EXPECT_EQ(description.node_id(), 5U);
        const auto& commissioning = description.commissioning();
        EXPECT_EQ(commissioning.node_name, "left");
        EXPECT_EQ(commissioning.baud_rate_kbit, 500U);
        EXPECT_EQ(commissioning.net_number, 3U);
        EXPECT_EQ(commissioning.network_name, "deck");
        EXPECT_TRUE(commissioning.canopen_manager);
        EXPECT_EQ(commissioning.lss_serial_number, 77U);
    }
}

TEST(DeviceDescription, AValueOfADcfWinsOverTheDefault) {
    const auto description =
        read(with_variable("DefaultValue=1\nParameterValue=2\nDenotation=left "
                           "pump\nUploadFile=up.bin\nDownloadFile=down.bin\n"));
    const Entry& entry = variable_of(description);
    EXPECT_EQ(entry.value_text(), "2");
    EXPECT_EQ(entry.value(), (ObjectBytes{2}));
    EXPECT_EQ(entry.default_value(), (ObjectBytes{1}));
    EXPECT_EQ(entry.denotation, "left pump");
    EXPECT_EQ(entry.upload_file, "up.bin");
    EXPECT_EQ(entry.download_file, "down.bin");
    EXPECT_EQ(variable_of(read(with_variable("DefaultValue=1\nParameterValue=\n"))).value(),
              (ObjectBytes{1}));
}

TEST(DeviceDescription, KeepsFormulasAndPutsTheNodeIn) {
    const auto description = read(with_variable("DefaultValue=0x180+$NODEID\nLowLimit=$NODEID\n", "7"));
    EXPECT_EQ(findings_of(description), Texts{});
    const Entry& entry = variable_of(description);
    EXPECT_EQ(entry.default_text, "0x180+$NODEID");
    EXPECT_EQ(entry.value(), std::nullopt);
    EXPECT_EQ(entry.value(5), (ObjectBytes{0x85, 1, 0, 0}));
    EXPECT_EQ(entry.low(9), (ObjectBytes{9, 0, 0, 0}));
}

TEST(DeviceDescription, ChecksValuesAgainstTypeAndLimits) {
    const auto description = read(with_variable("LowLimit=5\nHighLimit=0x20\n"));
    const Entry& entry = variable_of(description);
    EXPECT_EQ(entry.parse("7").bytes, (ObjectBytes{7}));
    EXPECT_EQ(entry.parse("4").bytes, std::nullopt);
    EXPECT_EQ(entry.parse("4").remark, "is below the low limit 5");
    EXPECT_EQ(entry.parse("0x21").remark, "is above the high limit 0x20");
    EXPECT_EQ(entry.parse("256").remark, "does not fit UNSIGNED8");
    EXPECT_EQ(entry.out_of_limits({5}), "");
    EXPECT_EQ(entry.out_of_limits({0x20}), "");
    EXPECT_EQ(entry.format({7}), "7");
}

TEST(DeviceDescription, KnowsEachAccessTypeInAnyCase) {
    struct Row {
        const char* word;
        ObjectAccess access;
        const char* name;
        bool readable, writable;
    };
    for (const Row& row : {Row{"ro", ObjectAccess::read_only, "ro", true, false},
                           Row{"WO", ObjectAccess::write_only, "wo", false, true},
                           Row{"Rw", ObjectAccess::read_write, "rw", true, true},
                           Row{"rwr", ObjectAccess::read_write_input, "rwr", true, true},
                           Row{"rww", ObjectAccess::read_write_output, "rww", true, true},
                           Row{"CONST ; never", ObjectAccess::constant, "const", true, false}}) {
        const auto description = read(with_variable("", "5", row.word));
        EXPECT_EQ(findings_of(description), Texts{});
        EXPECT_EQ(variable_of(description).access, row.access);
        EXPECT_STREQ(object_access_name(row.access), row.name);
        EXPECT_EQ(variable_of(description).readable(), row.readable) << row.word;
        EXPECT_EQ(variable_of(description).writable(), row.writable) << row.word;
    }
}

TEST(DeviceDescription, ADomainNeedsNeitherTypeNorAccess) {
    const auto description =
        read("[2000]\nParameterName=Firmware\nObjectType=2\n[ManufacturerObjects]\n1=0x2000\n");
    EXPECT_EQ(findings_of(description), Texts{});
    EXPECT_EQ(variable_of(description).type, Type::domain);
    EXPECT_TRUE(variable_of(description).is_domain);
    EXPECT_EQ(variable_of(description).access, ObjectAccess::read_write);
    EXPECT_EQ(description.object(0x2000)->code, ObjectCode::domain);
}

// Names.

TEST(DeviceDescription, FindsEntriesByName) {
    const auto description =
        read(record + "[1017]\nParameterName=Producer  heartbeat time\nDataType=6\nAccessType=rw\n");
    EXPECT_EQ(description.entry("Motor/Current"), description.entry(0x2000, 1));
    EXPECT_EQ(description.entry("motor/CURRENT"), description.entry(0x2000, 1));
    EXPECT_EQ(description.entry(" Producer heartbeat\ttime "), description.entry(0x1017, 0));
    EXPECT_EQ(description.entry("Current"), nullptr);
    EXPECT_EQ(description.entry("Motor"), nullptr);
    EXPECT_EQ(description.entry(""), nullptr);
    EXPECT_EQ(description.object("motor"), description.object(0x2000));
    EXPECT_EQ(description.object("Mot"), nullptr);
}

TEST(DeviceDescription, ANameOfTwoIsNobodysUnlessItIsWrittenExactlySo) {
    const auto description = read(
        "[2000]\nParameterName=Input 1\nDataType=5\nAccessType=ro\n[2001]\nParameterName=input "
        "01\nDataType=5\nAccessType=ro\n"
        "[2002]\nParameterName=Spare\nDataType=5\nAccessType=ro\n[2003]\nParameterName=Spare\nDataType="
        "5\nAccessType=ro\n");
    EXPECT_EQ(description.entry("Input 1"), description.entry(0x2000, 0));
    EXPECT_EQ(description.entry("input 01"), description.entry(0x2001, 0));
    EXPECT_EQ(description.entry("INPUT 1"), nullptr);
    EXPECT_EQ(description.entry("Spare"), nullptr);
    EXPECT_EQ(description.object("Spare"), nullptr);
    EXPECT_EQ(description.object("Input 1"), description.object(0x2000));
    EXPECT_EQ(description.entries_named("spare"),
              (std::vector<const Entry*>{description.entry(0x2002, 0), description.entry(0x2003, 0)}));
}

// Compact forms.

TEST(DeviceDescription, SpreadsACompactArray) {
    const auto description = read(
        "[OptionalObjects]\nSupportedObjects=1\n1=0x6000\n"
        "[6000]\nParameterName=Input\nObjectType=8\nDataType=6\nAccessType=ro\nDefaultValue=7\nPDOMapping="
        "1\nCompactSubObj=3\n"
        "[6000Name]\nNrOfEntries=1\n2=Door\n[6000Value]\nNrOfEntries=2\n1=0x11\n3=0x33\n[6000Denotation]\n3="
        "far end\n");
    EXPECT_EQ(findings_of(description), Texts{});
    const Object* object = description.object(0x6000);
    ASSERT_NE(object, nullptr);
    ASSERT_EQ(object->entries.size(), 4U);
    EXPECT_EQ(object->entries[0].name, "NrOfObjects");
    EXPECT_EQ(object->entries[0].type, Type::unsigned8);
    EXPECT_EQ(object->entries[0].access, ObjectAccess::read_only);
    EXPECT_EQ(object->entries[0].value(), (ObjectBytes{3}));
    EXPECT_EQ(object->entries[1].full_name(), "Input/Input1");
    EXPECT_EQ(object->entries[2].full_name(), "Input/Door");
    EXPECT_EQ(object->entries[1].value(), (ObjectBytes{0x11, 0}));
    EXPECT_EQ(object->entries[2].value(), (ObjectBytes{7, 0}));
    EXPECT_EQ(object->entries[3].value(), (ObjectBytes{0x33, 0}));
    EXPECT_EQ(object->entries[3].denotation, "far end");
    EXPECT_EQ(object->entries[3].subindex, 3);
    EXPECT_TRUE(object->entries[3].pdo_mapping);
    EXPECT_EQ(description.entry("Input/Input01"), &object->entries[1]);
}

TEST(DeviceDescription, AMemberWithASectionStaysInACompactArray) {
    const auto description = read(
        "[OptionalObjects]\n1=0x6000\n"
        "[6000]\nParameterName=Input\nObjectType=8\nDataType=6\nAccessType=ro\nCompactSubObj=2\n"
        "[6000sub1]\nParameterName=Own\nDataType=5\nAccessType=rw\n[6000Value]\n9=1\n0=1\n");
    EXPECT_EQ(findings_of(description),
              (Texts{"14: [6000Value] 9: is no member of the object: passed over",
                     "15: [6000Value] 0: is no member of the object: passed over"}));
    EXPECT_EQ(description.entry(0x6000, 1)->name, "Own");
    EXPECT_EQ(description.entry(0x6000, 1)->type, Type::unsigned8);
    EXPECT_EQ(description.entry(0x6000, 2)->type, Type::unsigned16);
}

TEST(DeviceDescription, MakesThePdosOfCompactPdo) {
    const auto description = read(
        sound_object +
        "[DeviceInfo]\nNrOfRXPDO=2\nNrOfTXPDO=5\nCompactPDO=0x13\n"
        "[1800]\nParameterName=Own\nObjectType=9\n[1800sub0]\nParameterName=n\nDataType=5\nAccessType=ro\n"
        "[OptionalObjects]\n1=0x1800\n");
    EXPECT_EQ(findings_of(description), Texts{});
    ASSERT_NE(description.object(0x1401), nullptr);
    EXPECT_EQ(description.object(0x1401)->name, "Receive PDO 2 communication parameter");
    ASSERT_EQ(description.object(0x1401)->entries.size(), 4U);
    EXPECT_EQ(description.entry(0x1401, 0)->value(), (ObjectBytes{5}));
    EXPECT_EQ(description.entry(0x1401, 1)->value(7), (ObjectBytes{0x07, 0x03, 0, 0}));
    EXPECT_EQ(description.entry(0x1401, 2)->value(), (ObjectBytes{255}));
    EXPECT_EQ(description.entry(0x1401, 3), nullptr);
    EXPECT_EQ(description.entry(0x1401, 5)->type, Type::unsigned16);
    EXPECT_EQ(description.entry(0x1601, 64)->value(), (ObjectBytes{0, 0, 0, 0}));
    EXPECT_EQ(description.entry(0x1601, 65), nullptr);
    EXPECT_EQ(description.entry(0x1803, 1)->value(7), (ObjectBytes{0x87, 0x04, 0, 0}));
    EXPECT_EQ(description.entry(0x1804, 1)->value(7), (ObjectBytes{0, 0, 0, 0x80}));
    EXPECT_EQ(description.object(0x1805), nullptr);
    EXPECT_EQ(description.object(0x1402), nullptr);
    EXPECT_EQ(description.object(0x1800)->name, "Own");
    EXPECT_EQ(description.object(0x1800)->entries.size(), 1U);
    ASSERT_NE(description.object(0x1A00), nullptr);
    for (std::size_t i = 1; i < description.objects().size(); ++i) {
        EXPECT_LT(description.objects()[i - 1].index, description.objects()[i].index);
    }
}

// The shape of the text.

TEST(DeviceDescription, TakesEveryLineEndAByteOrderMarkTabsAndBlanks) {
    for (const char* end : {"\n", "\r\n", "\r"}) {
        std::string text =
            "\xEF\xBB\xBF[ 2000 ] ; speed\n\tparametername =\tSpeed \nDATATYPE= 0x0005 ; of a wheel\n"
            "Access Type=rw\n ;HighLimit=3\n\nDefault Value = 0x7\t\n[MANUFACTUREROBJECTS]\n"
            "Supported Objects = 1\n1 = 0x2000";
        std::string with_end;
        for (const char c : text) {
            with_end += c == '\n' ? std::string(end) : std::string(1, c);
        }
        const auto description = read(with_end);
        EXPECT_EQ(findings_of(description), Texts{});
        const Entry& entry = variable_of(description);
        EXPECT_EQ(entry.name, "Speed");
        EXPECT_EQ(entry.type, Type::unsigned8);
        EXPECT_EQ(entry.access, ObjectAccess::read_write);
        EXPECT_EQ(entry.value(), (ObjectBytes{7}));
        EXPECT_EQ(entry.high(), std::nullopt);
    }
}

TEST(DeviceDescription, ReadsBytesThatAreNoUtf8AsLatin1) {
    EXPECT_EQ(read("[2000]\nParameterName=K\xFChlung \xB2\nDataType=5\nAccessType=rw\n").objects()[0].name,
              "K\u00fchlung \u00b2");
    EXPECT_EQ(read("[2000]\nParameterName=K\u00fchlung\nDataType=5\nAccessType=rw\n").objects()[0].name,
              "K\u00fchlung");
}

TEST(DeviceDescription, NamesKeepWhatLooksLikeAComment) {
    const auto description = read(with_variable("DefaultValue=a ; b # c\n", "9"));
    EXPECT_EQ(variable_of(description).default_text, "a ; b # c");
    const std::string name = "100 % = full ; or #1";
    EXPECT_EQ(read("[2000]\nParameterName=" + name + "\nDataType=5\nAccessType=rw\n").objects()[0].name,
              name);
    const std::string long_name(70000, 'n');
    EXPECT_EQ(read("[2000]\nParameterName=" + long_name + "\nDataType=5\nAccessType=rw\n").objects()[0].name,
              long_name);
}

TEST(DeviceDescription, ZeroBytesDoNotEndTheText) {
    const std::string text = with_variable("DefaultValue=7\n");
    const auto description = read(std::string("\0\n", 2) + text + std::string("\0", 1));
    EXPECT_EQ(variable_of(description).value(), (ObjectBytes{7}));
}

TEST(DeviceDescription, EmptyValuesAreNone) {
    const auto description = read(
        with_variable("DefaultValue=\nLowLimit=\nHighLimit= ; none\nPDOMapping=\nObjFlags=\nObjectType=\n"));
    EXPECT_EQ(findings_of(description), Texts{});
    EXPECT_EQ(variable_of(description).value(), std::nullopt);
    EXPECT_EQ(variable_of(description).low(), std::nullopt);
    EXPECT_EQ(variable_of(description).high(), std::nullopt);
    EXPECT_FALSE(variable_of(description).pdo_mapping);
}

// What is broken by hand.

struct Broken {
    const char* lines;
    const char* finding;
};

TEST(DeviceDescription, TellsBrokenValuesWithTheirPlaceAndLeavesThemOut) {
    for (const Broken& broken :
         {Broken{"DefaultValue=0x", "8: [2000] DefaultValue: is no number: \"0x\""},
          Broken{"DefaultValue=abc", "8: [2000] DefaultValue: is no number: \"abc\""},
          Broken{"DefaultValue=256", "8: [2000] DefaultValue: does not fit UNSIGNED8: \"256\""},
          Broken{"ParameterValue=0x1FF", "8: [2000] ParameterValue: does not fit UNSIGNED8: \"0x1FF\""},
          Broken{"LowLimit=-1", "8: [2000] LowLimit: does not fit UNSIGNED8: \"-1\""},
          Broken{"HighLimit=300 ; much", "8: [2000] HighLimit: does not fit UNSIGNED8: \"300\""},
          Broken{"LowLimit=9\nHighLimit=8",
                 "8: [2000] LowLimit: is above the HighLimit, 8: both passed over"},
          Broken{"DefaultValue=$NODEID+$NODEID",
                 "8: [2000] DefaultValue: has $NODEID twice: \"$NODEID+$NODEID\""},
          Broken{"PDOMapping=2", "8: [2000] PDOMapping: is more than 1: \"2\""},
          Broken{"PDOMapping=yes", "8: [2000] PDOMapping: is no number: \"yes\""},
          Broken{"ObjFlags=$NODEID", "8: [2000] ObjFlags: is no number: \"$NODEID\""},
          Broken{"ObjectType=4", "8: [2000] ObjectType: is no object type: 4"},
          Broken{"ObjectType=-7", "8: [2000] ObjectType: is no number: \"-7\""}}) {
        const auto description = read(with_variable(broken.lines));
        EXPECT_EQ(findings_of(description), Texts{broken.finding});
        ASSERT_EQ(description.findings().size(), 1U);
        EXPECT_EQ(description.findings()[0].severity, Severity::error);
        const Entry& entry = variable_of(description);
        EXPECT_EQ(entry.value(5), std::nullopt);
        EXPECT_EQ(entry.low(), std::nullopt);
        EXPECT_EQ(entry.high(), std::nullopt);
        EXPECT_FALSE(entry.pdo_mapping);
    }
}

TEST(DeviceDescription, TakesOddValuesAndTellsThem) {
    for (const Broken& broken :
         {Broken{"DefaultValue=08",
                 "8: [2000] DefaultValue: has a leading 0 and is not octal: taken as decimal: \"08\""},
          Broken{"DefaultValue=8.0",
                 "8: [2000] DefaultValue: has a fraction: taken as the whole number: \"8.0\""},
          Broken{"LowLimit=9\nDefaultValue=8", "9: [2000] DefaultValue: is below the LowLimit, 9"},
          Broken{"HighLimit=7\nDefaultValue=8", "9: [2000] DefaultValue: is above the HighLimit, 7"},
          Broken{"DefaultValue=8\nDefaultValue=9", "9: [2000] DefaultValue: stands again: line 8 counts"}}) {
        const auto description = read(with_variable(broken.lines));
        EXPECT_EQ(findings_of(description), Texts{broken.finding});
        EXPECT_EQ(description.findings()[0].severity, Severity::warning);
        EXPECT_EQ(variable_of(description).value(), (ObjectBytes{8}));
    }
}

TEST(DeviceDescription, AnUnknownAccessTypeLeavesItToTheNode) {
    const auto description = read(with_variable("", "5", "sometimes"));
    EXPECT_EQ(findings_of(description), Texts{"7: [2000] AccessType: is no access type: \"sometimes\""});
    EXPECT_EQ(variable_of(description).access, ObjectAccess::unknown);
    EXPECT_STREQ(object_access_name(ObjectAccess::unknown), "unknown");
    EXPECT_TRUE(variable_of(description).readable());
    EXPECT_TRUE(variable_of(description).writable());
    EXPECT_EQ(findings_of(read(with_variable("", "5", ""))), Texts{"4: [2000]: has no AccessType"});
}

TEST(DeviceDescription, AMissingOrUnknownDataTypeIsADomain) {
    const auto missing = read(with_variable("", ""));
    EXPECT_EQ(findings_of(missing), Texts{"4: [2000]: has no DataType: taken as DOMAIN"});
    EXPECT_EQ(variable_of(missing).type, Type::domain);
    for (const char* type : {"0x17", "0x40", "0x10007"}) {
        const auto unknown = read(with_variable("", type));
        EXPECT_EQ(
            findings_of(unknown),
            Texts{std::string("6: [2000] DataType: is no data type, taken as DOMAIN: \"") + type + "\""});
        EXPECT_EQ(variable_of(unknown).type, Type::domain);
    }
    const auto no_number = read(with_variable("", "word"));
    EXPECT_EQ(findings_of(no_number), (Texts{"4: [2000]: has no DataType: taken as DOMAIN",
                                             "6: [2000] DataType: is no number: \"word\""}));
    const auto count = read(
        "[2000]\nParameterName=a\nObjectType=8\n[2000sub0]\nParameterName=n\nAccessType=ro\n["
        "ManufacturerObjects]\n1=0x2000\n");
    EXPECT_EQ(findings_of(count), Texts{"4: [2000sub0]: has no DataType: taken as UNSIGNED8"});
    EXPECT_EQ(count.entry(0x2000, 0)->type, Type::unsigned8);
}

TEST(DeviceDescription, FollowsATypeThatTheFileDefines) {
    const auto description =
        read(with_variable("", "0xA0") +
             "[A0]\nParameterName=STRING10\nObjectType=5\n[A0sub0]\nParameterName=n\nDataType=5\nAccessType="
             "ro\nDefaultValue=1\n"
             "[A0sub1]\nParameterName=Type\nDataType=5\nAccessType=ro\nDefaultValue=0x9\n");
    EXPECT_EQ(findings_of(description), Texts{});
    EXPECT_EQ(variable_of(description).type, Type::visible_string);
}

TEST(DeviceDescription, NamesWhatHasNoName) {
    const auto description = read(
        "[2000]\nDataType=5\nAccessType=ro\n[2001]\nParameterName=\nObjectType=8\n[2001sub0]\nDataType="
        "5\nAccessType=ro\n"
        "[ManufacturerObjects]\n1=0x2000\n2=0x2001\n");
    EXPECT_EQ(findings_of(description), (Texts{"1: [2000]: has no ParameterName: named by its index",
                                               "4: [2001]: has no ParameterName: named by its index",
                                               "7: [2001sub0]: has no ParameterName: named by its section"}));
    EXPECT_EQ(description.entry(0x2000, 0)->name, "2000");
    EXPECT_EQ(description.entry(0x2001, 0)->full_name(), "2001/2001sub0");
}

TEST(DeviceDescription, ListsAndSectionsAreTakenTogether) {
    const auto description = read(
        "[OptionalObjects]\nSupportedObjects=9\n1=0x1017\n3=0x1018\n4=0x1017\n5=0x6000\n6=word\n7=0x10000\n"
        "[ManufacturerObjects]\nSupportedObjects=1\n1=0x1017\n"
        "[1017]\nParameterName=a\nDataType=6\nAccessType=rw\n[2000]\nParameterName=b\nDataType=6\nAccessType="
        "rw\n");
    EXPECT_EQ(findings_of(description),
              (Texts{"2: [OptionalObjects] SupportedObjects: is not the number of objects named, 4",
                     "4: [OptionalObjects] 3: is listed and has no section: 1018",
                     "5: [OptionalObjects] 4: is 1017 again: line 3 counts",
                     "6: [OptionalObjects] 5: is listed and has no section: 6000",
                     "7: [OptionalObjects] 6: is no number: \"word\"",
                     "8: [OptionalObjects] 7: is more than 65535: \"0x10000\"",
                     "11: [ManufacturerObjects] 1: is 1017 again: line 3 counts",
                     "16: [2000]: is in no list of objects: taken"}));
    EXPECT_EQ(description.objects().size(), 2U);
    EXPECT_EQ(description.object(0x1017)->list, Object::List::optional);
    EXPECT_EQ(description.object(0x2000)->list, Object::List::none);
}

TEST(DeviceDescription, TellsAnObjectInTheWrongList) {
    const auto description = read(
        "[2000]\nParameterName=b\nDataType=6\nAccessType=rw\n[1000]\nParameterName=a\nDataType=7\nAccessType="
        "ro\n"
        "[OptionalObjects]\n1=0x2000\n2=0x1000\n");
    EXPECT_EQ(findings_of(description), (Texts{"10: [OptionalObjects] 1: is in the wrong list: 2000",
                                               "11: [OptionalObjects] 2: is in the wrong list: 1000"}));
}

TEST(DeviceDescription, TheFirstOfTwoSectionsCounts) {
    const auto description = read(record +
                                  "[2000SUB1]\nParameterName=Again\nDataType=5\nAccessType=rw\n"
                                  "[FileInfo]\nFileName=a\n[FileInfo]\nFileName=b\n");
    EXPECT_EQ(findings_of(description), (Texts{"29: [2000SUB1]: stands again: what line 14 begins counts",
                                               "35: [FileInfo]: stands again: what line 33 begins counts"}));
    EXPECT_EQ(description.entry(0x2000, 1)->name, "Current");
    EXPECT_EQ(description.file_info().file_name, "a");
}

TEST(DeviceDescription, AMemberWithoutItsObjectMakesOne) {
    const auto description =
        read("[2022sub0]\nParameterName=n\nDataType=5\nAccessType=ro\n[ManufacturerObjects]\n1=0x2022\n");
    EXPECT_EQ(findings_of(description),
              Texts{"1: [2022sub0]: is a member of an object without a section: named by its index"});
    EXPECT_EQ(description.entry(0x2022, 0)->full_name(), "2022/n");
    EXPECT_EQ(description.object(0x2022)->code, ObjectCode::record);
}

TEST(DeviceDescription, AVariableWithMembersIsARecord) {
    const auto description = read(
        "[2022]\nParameterName=x\nObjectType=7\n[2022sub1]\nParameterName=m\nObjectType=8\nDataType="
        "5\nAccessType=ro\n"
        "[ManufacturerObjects]\n1=0x2022\n");
    EXPECT_EQ(findings_of(description),
              Texts{"1: [2022]: has members and is no array or record: taken as a record"});
    ASSERT_EQ(description.object(0x2022)->entries.size(), 1U);
    EXPECT_EQ(description.entry("x/m")->type, Type::unsigned8);
}

TEST(DeviceDescription, CountsMembersForItself) {
    std::string wrong = record;
    wrong.replace(wrong.find("SubNumber=3"), 11, "SubNumber=4");
    EXPECT_EQ(findings_of(wrong), Texts{"7: [2000] SubNumber: is not the number of members, 3: \"4\""});
    EXPECT_EQ(findings_of("[2000]\nParameterName=a\nObjectType=9\n[ManufacturerObjects]\n1=0x2000\n"),
              Texts{"1: [2000]: is an array or record without members"});
    const std::string structure = record + "[2000subFF]\nParameterName=s\nDataType=7\nAccessType=ro\n";
    EXPECT_EQ(findings_of(structure), Texts{});
}

TEST(DeviceDescription, TellsMembersNumberedInDecimal) {
    std::string text =
        "[ManufacturerObjects]\n1=0x2000\n[2000]\nParameterName=a\nObjectType=8\nSubNumber=12\n";
    for (const char* subindex : {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"}) {
        text += std::string("[2000sub") + subindex + "]\nParameterName=m\nDataType=5\nAccessType=ro\n";
    }
    const auto description = read(text);
    EXPECT_EQ(findings_of(description), Texts{"6: [2000] SubNumber: fits members that are numbered in "
                                              "decimal: taken as hexadecimal all the same"});
    EXPECT_NE(description.entry(0x2000, 0x11), nullptr);
    EXPECT_EQ(description.entry(0x2000, 11), nullptr);
}

TEST(DeviceDescription, TellsSectionsThatBelongNowhere) {
    const auto description = read(
        sound_object +
        "[1000sub100]\nDataType=5\n[1000subXY]\n[3000Value]\n1=5\n[Vendor]\nx=1\n[1001\nParameterName=e\n"
        "DataType=5\nAccessType=ro\n[1002] rest\nParameterName=s\nDataType=7\nAccessType=ro\n");
    EXPECT_EQ(findings_of(description),
              (Texts{"8: [1000sub100]: is no subindex, 0 to FF: passed over",
                     "10: [1000subXY]: is no subindex, 0 to FF: passed over",
                     "11: [3000Value]: belongs to no object: passed over",
                     "13: [Vendor]: is not known: passed over", "15: [1001]: does not end with ] alone",
                     "15: [1001]: is in no list of objects: taken", "19: [1002]: does not end with ] alone",
                     "19: [1002]: is in no list of objects: taken"}));
    EXPECT_EQ(description.objects().size(), 3U);
}

TEST(DeviceDescription, PassesOverTheSectionsOfModularDevices) {
    EXPECT_EQ(findings_of(
                  sound_object +
                  "[1000ObjectLinks]\nObjectLinks=0\n[SupportedModules]\nNrOfEntries=1\n[M1ModuleInfo]\nx=1\n"
                  "[M1FixedObjects]\n[M1SubExt6000]\n[ConnectedModules]\n[DynamicChannels]\n[Tools]\nItems="
                  "1\n[Tool1]\nName=x\n"),
              Texts{});
}

TEST(DeviceDescription, TellsUnknownKeysAndForeignLinesOnce) {
    const auto description =
        read(with_variable("Factor=1\nUnit=rpm\nfactor=2\nwhat is this\nand this\n=7\n"));
    EXPECT_EQ(findings_of(description),
              (Texts{"8: [2000] Factor: is not known: passed over, here and elsewhere",
                     "9: [2000] Unit: is not known: passed over, here and elsewhere",
                     "11: [2000]: is neither a key with a value nor a comment: passed over, as 2 more"}));
    EXPECT_EQ(description.findings()[0].severity, Severity::note);
    EXPECT_EQ(findings_of("x=1\n" + with_variable("")),
              Texts{"1: x: stands before the first section: passed over"});
}

TEST(DeviceDescription, TellsWrongCountsOfLinesAndEntries) {
    EXPECT_EQ(findings_of(sound_object + "[Comments]\nLines=3\nLine1=a\nLine1=b\nLine4=c\n"),
              (Texts{"9: [Comments] Lines: is not the number of lines, 2",
                     "11: [Comments] Line1: stands again: line 10 counts"}));
    EXPECT_EQ(findings_of("[ManufacturerObjects]\n1=0x2000\n[2000]\nParameterName=a\nObjectType=8\nDataType="
                          "5\nAccessType=ro\nCompactSubObj=2\n"
                          "[2000Name]\nNrOfEntries=4\n1=b\n"),
              Texts{"10: [2000Name] NrOfEntries: is not the number of entries, 1"});
    EXPECT_EQ(findings_of("[ManufacturerObjects]\n1=0x2000\n[2000]\nParameterName=a\nObjectType=8\nDataType="
                          "5\nAccessType=ro\nCompactSubObj=255\n"),
              (Texts{"3: [2000]: is an array or record without members",
                     "8: [2000] CompactSubObj: is more than 254: \"255\""}));
}

// Refusal.

TEST(DeviceDescription, RefusesAFileOnlyWhenNothingIsLeft) {
    for (const std::string text :
         {"", "\n\n", "[FileInfo]\nFileName=x\n", "hello", "\xFF", "[2000subGG]\n"}) {
        DeviceDescription description;
        EXPECT_FALSE(description.parse(text, "x.eds")) << text;
        ASSERT_FALSE(description.findings().empty());
        EXPECT_EQ(description.findings().back().text(), "x.eds: has no object that can be used");
        EXPECT_EQ(description.findings().back().severity, Severity::error);
    }
    EXPECT_TRUE(DeviceDescription().parse("[2000]\n", "x.eds"));
}

TEST(DeviceDescription, RefusesUtf16) {
    DeviceDescription description;
    EXPECT_FALSE(description.parse(std::string("\xFF\xFE[\0", 4), "x.eds"));
    EXPECT_EQ(findings_of(description),
              Texts{"1: is UTF-16: a device description is ASCII, UTF-8 or Latin-1"});
}

TEST(DeviceDescription, ParsingDropsWhatWasReadBefore) {
    DeviceDescription description =
        read(record + "[FileInfo]\nFileName=a\n[DeviceComissioning]\nNodeID=5\n[2000]\n");
    EXPECT_FALSE(description.findings().empty());
    EXPECT_TRUE(description.parse(sound_object, "y.eds"));
    EXPECT_EQ(description.objects().size(), 1U);
    EXPECT_TRUE(description.findings().empty());
    EXPECT_EQ(description.node_id(), 0U);
    EXPECT_EQ(description.file_info().file_name, "");
    EXPECT_EQ(description.file(), "y.eds");
    EXPECT_EQ(description.entry("Motor/Current"), nullptr);
}

TEST(DeviceDescription, LoadsAFileAndSaysWhyItCannot) {
    const std::string path =
        std::filesystem::temp_directory_path() / ("description" + std::to_string(getpid()) + ".eds");
    std::ofstream(path, std::ios::binary) << record;
    DeviceDescription description;
    EXPECT_TRUE(description.load(path));
    EXPECT_EQ(description.file(), path);
    EXPECT_EQ(description.entry_count(), 3U);
    std::filesystem::remove(path);
    EXPECT_FALSE(description.load(path));
    EXPECT_EQ(description.objects().size(), 0U);
    ASSERT_EQ(description.findings().size(), 1U);
    EXPECT_EQ(description.findings()[0].text(), path + ": cannot be read: No such file or directory");
    EXPECT_FALSE(description.load("/"));
    EXPECT_EQ(description.findings()[0].text(), "/: cannot be read: Is a directory");
}

TEST(DeviceDescription, CopiesAreWhole) {
    DeviceDescription copy;
    {
        const DeviceDescription description = read(record);
        copy = description;
    }
    EXPECT_EQ(copy.entry("Motor/Current"), copy.entry(0x2000, 1));
    EXPECT_EQ(copy.entry(0x2000, 1)->name, "Current");
}

TEST(DeviceDescription, FindingsCutVeryLongNames) {
    const std::string blanks(5000, ' ');
    const auto description = read("[2000" + blanks + "sub1]\nDataType=5\nDataType" + blanks + "=5\n");
    ASSERT_FALSE(description.findings().empty());
    for (const DescriptionFinding& finding : description.findings()) {
        EXPECT_LE(finding.text().size(), 600U);
    }
    EXPECT_NE(description.entry(0x2000, 1), nullptr);
}

// 100,000 lines of each kind that needs a look at what came before: this ends only if the cost is not quadratic.
TEST(DeviceDescription, ReadsAHundredThousandLinesOfAnything) {
    std::string sections, keys, numbers, foreign, members, unknown;
    for (int i = 0; i < 100000; ++i) {
        sections += "[2000]\n";
        keys += "DefaultValue=1\n";
        numbers += std::to_string(i) + "=0x2000\n";
        foreign += "x\n";
        members += "[2000sub" + std::string(1, "0123456789ABCDEF"[i % 16]) + "]\n";
        unknown += "key" + std::to_string(i) + "=1\n";
    }
    for (const std::string& text :
         {sections, "[2000]\n" + keys, "[ManufacturerObjects]\n" + numbers + "[2000]\n", "[2000]\n" + foreign,
          members, "[2000]\n" + unknown}) {
        const auto description = read(text);
        EXPECT_EQ(description.objects().size(), 1U);
    }
    // Many objects of a type whose definition is a long section.
    std::string defined = "[A0]\nObjectType=5\n[A0sub1]\n" + unknown + "DefaultValue=7\n";
    for (unsigned int index = 0x1000; index < 0x10000; ++index) {
        constexpr char digits[] = "0123456789ABCDEF";
        defined += std::string("[") + digits[index >> 12] + digits[index >> 8 & 15] +
                   digits[index >> 4 & 15] + digits[index & 15] + "]\nDataType=0xA0\n";
    }
    EXPECT_EQ(read(defined).entry(0xFFFF, 0)->type, Type::unsigned32);
}

}  // namespace
