#include "nodevik/decoder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <type_traits>

#include "tests/support/childprocess.h"

namespace {

constexpr unsigned char frame_data[8] = {0x00, 0x01, 0x7F, 0x80, 0xAB, 0xCD, 0xEF, 0xFF};

const std::string log_opened = "\n\n<<<<<<<<<<<<<<<<LOG OPENED>>>>>>>>>>>>>>>>\n\n";
const std::string log_closed = "\n\n<<<<<<<<<<<<<<<<LOG CLOSED>>>>>>>>>>>>>>>>\n\n";

// A decoder whose state can be looked at and whose decoding is scripted: its text is "<id>", its result
// `result`.
class ScriptedDecoder : public CDecoder {
public:
    int decode_message(uint32_t id, uint8_t len, const void* data) const override {
        (void)len;
        (void)data;
        seen_before_decoding = get_message();
        add_printf("<%u>", id);
        return result;
    }

    int result = 0;
    mutable std::string seen_before_decoding;

    uint32_t filter() const { return m_TypeFilter; }
    static void set_color(int color) { m_MessageColor = color; }
    static bool is_log_open() { return m_isLogOpen; }
    static std::string log_filename() { return m_LogFilename; }
    static bool prints_by_default() { return m_CallbackFunc == CDecoder::print_message_callback; }
    static bool is_file_open() { return m_Outfile.is_open(); }
    static std::size_t message_room() { return sizeof m_Message; }
    static std::size_t filename_room() { return sizeof m_LogFilename; }
};

// Starts each test with an empty line, and gives it a directory of its own for logs.
class Decoder : public testing::Test {
public:
    ~Decoder() override { std::filesystem::remove_all(directory_); }

protected:
    Decoder() {
        CDecoder::clear_message();
        CDecoder::register_callback(CDecoder::print_message_callback);
        char name[] = "/tmp/decoder_test.XXXXXX";
        directory_ = mkdtemp(name);
    }

    std::string path(const std::string& name) const { return directory_ + "/" + name; }

    static std::string contents(const std::string& name) {
        std::ifstream file(name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

private:
    std::string directory_;
};

std::string callback_text;
int callback_calls = 0;

void recording_callback(const char* line) {
    callback_text = line;
    ++callback_calls;
}

}  // namespace

TEST(DecoderMessageTypes, AreTheBitsOfTheTypeFilter) {
    EXPECT_EQ(D_NMT, 1U);
    EXPECT_EQ(D_TPDO, 4U);
    EXPECT_EQ(D_RPDO, 8U);
    EXPECT_EQ(D_SDO, 16U);
    EXPECT_EQ(D_SYNC, 32U);
    EXPECT_EQ(D_HEARTBEAT, 64U);
    EXPECT_EQ(D_ALL, 255U);
}

TEST_F(Decoder, StartsWithAnEmptyGreenLineAndNoLog) {
    const ChildResult child = run_in_child([] {
        const ScriptedDecoder decoder;
        std::printf("[%s] %d %d %d [%s] %d %u", CDecoder::get_message(), CDecoder::get_message_color(),
                    ScriptedDecoder::is_log_open(), ScriptedDecoder::is_file_open(),
                    ScriptedDecoder::log_filename().c_str(), ScriptedDecoder::prints_by_default(),
                    decoder.filter());
    });
    EXPECT_EQ(child.out, "[] 2 0 0 [] 1 0");
}

TEST_F(Decoder, HasRoomFor300CharactersOfLineAnd4095OfFileName) {
    EXPECT_EQ(ScriptedDecoder::message_room(), 301U);
    EXPECT_EQ(ScriptedDecoder::filename_room(), 4096U);
}

TEST_F(Decoder, IsDestroyedThroughItsBase) {
    EXPECT_TRUE(std::has_virtual_destructor_v<CDecoder>);
}

TEST_F(Decoder, SetTypefilterReplacesTheFilter) {
    ScriptedDecoder decoder;
    decoder.set_typefilter(D_NMT | D_SDO);
    EXPECT_EQ(decoder.filter(), 17U);
    decoder.set_typefilter(D_RPDO);
    EXPECT_EQ(decoder.filter(), 8U);
}

TEST_F(Decoder, SwitchTypeSetsAndClearsOnlyTheGivenBits) {
    ScriptedDecoder decoder;
    decoder.switch_type(D_NMT | D_TPDO, true);
    decoder.switch_type(D_SDO, true);
    EXPECT_EQ(decoder.filter(), 21U);
    decoder.switch_type(D_TPDO | D_SYNC, false);
    EXPECT_EQ(decoder.filter(), 17U);
}

TEST_F(Decoder, EachDecoderHasAFilterOfItsOwn) {
    ScriptedDecoder one;
    ScriptedDecoder other;
    one.set_typefilter(D_ALL);
    EXPECT_EQ(other.filter(), 0U);
}

TEST_F(Decoder, DumpsIdentifierLengthAndAllEightBytes) {
    const CDecoder decoder;
    EXPECT_EQ(decoder.decode_message(0x181, 8, frame_data), 0);
    EXPECT_STREQ(CDecoder::get_message(), "id 0x00000181  len 8  data 00 01 7f 80 ab cd ef ff");
}

TEST_F(Decoder, DumpsEightBytesWhateverTheLength) {
    const CDecoder decoder;
    EXPECT_EQ(decoder.decode_message(0x1FFFFFFF, 2, frame_data), 0);
    EXPECT_STREQ(CDecoder::get_message(), "id 0x1fffffff  len 2  data 00 01 7f 80 ab cd ef ff");
    EXPECT_EQ(decoder.decode_message(0, 255, frame_data), 0);
    EXPECT_STREQ(CDecoder::get_message(), "id 0x00000000  len 255  data 00 01 7f 80 ab cd ef ff");
}

TEST_F(Decoder, DumpReplacesWhatTheLineHeld) {
    const CDecoder decoder;
    CDecoder::add_printf("old");
    decoder.decode_message(1, 0, frame_data);
    EXPECT_STREQ(CDecoder::get_message(), "id 0x00000001  len 0  data 00 01 7f 80 ab cd ef ff");
}

TEST_F(Decoder, DumpIgnoresTheTypeFilter) {
    CDecoder decoder;
    decoder.set_typefilter(0);
    EXPECT_EQ(decoder.decode_message(0x000, 0, frame_data), 0);
    EXPECT_STRNE(CDecoder::get_message(), "");
}

TEST_F(Decoder, AddPrintfAppendsByTheRulesOfPrintf) {
    CDecoder::add_printf("%s %03d", "one", 7);
    CDecoder::add_printf(" 100%%");
    EXPECT_STREQ(CDecoder::get_message(), "one 007 100%");
}

TEST_F(Decoder, AddTextAppendsAsItStands) {
    CDecoder::add_text("100%s");
    CDecoder::add_text("");
    CDecoder::add_text("!");
    EXPECT_STREQ(CDecoder::get_message(), "100%s!");
}

TEST_F(Decoder, ClearMessageEmptiesTheLine) {
    CDecoder::add_text("text");
    CDecoder::clear_message();
    EXPECT_STREQ(CDecoder::get_message(), "");
}

TEST_F(Decoder, AddPrintfCutsWhatGoesBeyond300Characters) {
    CDecoder::add_printf("%s", std::string(299, 'a').c_str());
    CDecoder::add_printf("%s", "bcd");
    EXPECT_EQ(CDecoder::get_message(), std::string(299, 'a') + "b");
    CDecoder::add_printf("%d", 5);
    EXPECT_EQ(CDecoder::get_message(), std::string(299, 'a') + "b");
}

TEST_F(Decoder, AddPrintfCutsOneTextThatIsTooLong) {
    CDecoder::add_printf("%s", std::string(1000, 'x').c_str());
    EXPECT_EQ(CDecoder::get_message(), std::string(300, 'x'));
}

TEST_F(Decoder, AddPrintfTakesExactly300Characters) {
    CDecoder::add_printf("%s", std::string(300, 'x').c_str());
    EXPECT_EQ(CDecoder::get_message(), std::string(300, 'x'));
}

TEST_F(Decoder, AddTextCutsWhatGoesBeyond300Characters) {
    CDecoder::add_text(std::string(298, 'a').c_str());
    CDecoder::add_text("bcd");
    EXPECT_EQ(CDecoder::get_message(), std::string(298, 'a') + "bc");
    CDecoder::add_text("e");
    EXPECT_EQ(CDecoder::get_message(), std::string(298, 'a') + "bc");
}

TEST_F(Decoder, AddPrintfLeavesTheLineWhenATextCannotBeFormatted) {
    CDecoder::add_text("kept");
    CDecoder::add_printf(" %ls", L"\xDFFF");  // no character
    EXPECT_STREQ(CDecoder::get_message(), "kept");
}

TEST_F(Decoder, PrintWritesTheLineInItsColourAndEmptiesIt) {
    const ChildResult child = run_in_child([] {
        CDecoder::add_text("a line");
        CDecoder::print();
        std::printf("[%s]", CDecoder::get_message());
    });
    EXPECT_EQ(child.out, "\033[1;32ma line\n\033[m[]");
}

TEST_F(Decoder, PrintTakesTheColourOfTheMessage) {
    const ChildResult child = run_in_child([] {
        ScriptedDecoder::set_color(7);
        CDecoder::add_text("white");
        std::printf("%d", CDecoder::get_message_color());
        CDecoder::print();
    });
    EXPECT_EQ(child.out, "7\033[1;37mwhite\n\033[m");
}

TEST_F(Decoder, PrintOfAnEmptyLinePrintsNothing) {
    const ChildResult child = run_in_child([] { CDecoder::print(); });
    EXPECT_EQ(child.out, "");
}

TEST_F(Decoder, PrintMessageCallbackPrintsThePendingLineWhateverItIsHanded) {
    const ChildResult child = run_in_child([] {
        CDecoder::print_message_callback("other");
        CDecoder::add_text("pending");
        CDecoder::print_message_callback("other");
        std::printf("[%s]", CDecoder::get_message());
    });
    EXPECT_EQ(child.out, "\033[1;32mpending\n\033[m[]");
}

TEST_F(Decoder, PrintMessagePrintsALineWhenTheNextFrameIsDecoded) {
    const ChildResult child = run_in_child([] {
        const CDecoder decoder;
        decoder.print_message(0x181, 1, frame_data);
        std::printf("(nothing yet)");
        CDecoder::add_printf(" [R]");
        decoder.print_message(0x182, 2, frame_data);
        std::printf("(one)");
        CDecoder::print();
    });
    EXPECT_EQ(child.out,
              "(nothing yet)"
              "\033[1;32mid 0x00000181  len 1  data 00 01 7f 80 ab cd ef ff [R]\n\033[m"
              "(one)"
              "\033[1;32mid 0x00000182  len 2  data 00 01 7f 80 ab cd ef ff\n\033[m");
}

TEST_F(Decoder, PrintMessageEmptiesTheLineBeforeDecoding) {
    const ScriptedDecoder decoder;
    CDecoder::register_callback(recording_callback);
    CDecoder::add_text("pending");
    decoder.print_message(5, 0, frame_data);
    EXPECT_EQ(decoder.seen_before_decoding, "");
    EXPECT_STREQ(CDecoder::get_message(), "<5>");
}

TEST_F(Decoder, PrintMessageCallsTheDerivedDecoding) {
    const ScriptedDecoder decoder;
    const CDecoder& base = decoder;
    base.print_message(42, 0, frame_data);
    EXPECT_STREQ(CDecoder::get_message(), "<42>");
}

TEST_F(Decoder, PrintMessageDropsTheLineOfANonZeroResult) {
    ScriptedDecoder decoder;
    for (const int result : {1, 2, 3, -1}) {
        decoder.result = result;
        decoder.print_message(42, 0, frame_data);
        EXPECT_STREQ(CDecoder::get_message(), "") << result;
    }
}

TEST_F(Decoder, RegisteredCallbackGetsThePendingLineInsteadOfStandardOutput) {
    const ChildResult child = run_in_child([] {
        const ScriptedDecoder decoder;
        CDecoder::register_callback([](const char* line) { std::printf("callback [%s]\n", line); });
        decoder.print_message(1, 0, frame_data);
        decoder.print_message(2, 0, frame_data);
        CDecoder::register_callback(CDecoder::print_message_callback);
        CDecoder::clear_message();
    });
    EXPECT_EQ(child.out, "callback []\ncallback [<1>]\n");
}

TEST_F(Decoder, CallbackIsSharedByAllDecoders) {
    const ScriptedDecoder one;
    const CDecoder other;
    callback_calls = 0;
    CDecoder::register_callback(recording_callback);
    one.print_message(9, 0, frame_data);
    other.print_message(1, 0, frame_data);
    EXPECT_EQ(callback_calls, 2);
    EXPECT_EQ(callback_text, "<9>");
}

TEST_F(Decoder, OpenLogWritesTheHeader) {
    const std::string name = path("bus.log");
    EXPECT_EQ(CDecoder::open_log(name.c_str()), 0);
    EXPECT_TRUE(ScriptedDecoder::is_log_open());
    EXPECT_EQ(ScriptedDecoder::log_filename(), name);
    EXPECT_EQ(contents(name), log_opened);
    CDecoder::close_log();
}

TEST_F(Decoder, CloseLogWritesTheFooterAndClosesTheFile) {
    const std::string name = path("bus.log");
    ASSERT_EQ(CDecoder::open_log(name.c_str()), 0);
    CDecoder::close_log();
    EXPECT_FALSE(ScriptedDecoder::is_log_open());
    EXPECT_FALSE(ScriptedDecoder::is_file_open());
    EXPECT_EQ(contents(name), log_opened + log_closed);
}

TEST_F(Decoder, PrintAppendsThePlainLineToTheOpenLog) {
    const std::string name = path("bus.log");
    const ChildResult child = run_in_child([&name] {
        CDecoder::open_log(name.c_str());
        CDecoder::add_text("logged");
        CDecoder::print();
        CDecoder::close_log();
        CDecoder::add_text("not logged");
        CDecoder::print();
    });
    EXPECT_EQ(child.out, "\033[1;32mlogged\n\033[m\033[1;32mnot logged\n\033[m");
    EXPECT_EQ(contents(name), log_opened + "logged\n" + log_closed);
}

TEST_F(Decoder, LineIsInTheLogAsSoonAsItIsPrinted) {
    const std::string name = path("bus.log");
    const ChildResult child = run_in_child([&name] {
        CDecoder::open_log(name.c_str());
        CDecoder::add_text("last words");
        CDecoder::print();
        std::abort();
    });
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_EQ(contents(name), log_opened + "last words\n");
}

TEST_F(Decoder, EmptyLineIsNotLogged) {
    const std::string name = path("bus.log");
    ASSERT_EQ(CDecoder::open_log(name.c_str()), 0);
    CDecoder::print();
    CDecoder::close_log();
    EXPECT_EQ(contents(name), log_opened + log_closed);
}

TEST_F(Decoder, OpenLogAppendsToAFileThatExists) {
    const std::string name = path("bus.log");
    std::ofstream(name) << "before";
    ASSERT_EQ(CDecoder::open_log(name.c_str()), 0);
    CDecoder::close_log();
    ASSERT_EQ(CDecoder::open_log(name.c_str()), 0);
    CDecoder::close_log();
    EXPECT_EQ(contents(name), "before" + log_opened + log_closed + log_opened + log_closed);
}

TEST_F(Decoder, OpenLogTwiceSaysSoAndKeepsTheFirst) {
    const std::string first = path("first.log");
    const std::string second = path("second.log");
    const ChildResult child = run_in_child([&] {
        CDecoder::open_log(first.c_str());
        std::printf("%d\n", CDecoder::open_log(second.c_str()));
        std::printf("%s\n", ScriptedDecoder::log_filename().c_str());
        CDecoder::add_text("line");
        CDecoder::print();
        CDecoder::close_log();
    });
    EXPECT_EQ(child.out, "LOG is already OPEN!\n0\n" + first + "\n\033[1;32mline\n\033[m");
    EXPECT_EQ(contents(first), log_opened + "line\n" + log_closed);
    EXPECT_FALSE(std::filesystem::exists(second));
}

TEST_F(Decoder, LogThatCannotBeOpenedIsReportedWithThePlaceAsOneCharacter) {
    const std::string name = path("missing/bus.log");
    const ChildResult child = run_in_child([&name] {
        const int result = CDecoder::open_log(name.c_str());
        std::printf("%d %d", result, ScriptedDecoder::is_log_open());
    });
    EXPECT_EQ(child.out, "nodevik/decoder:\xC5 - Error while opening a file '" + name + "'\n-1 0");
}

TEST_F(Decoder, LogOpensAfterAFailedAttempt) {
    const std::string name = path("bus.log");
    const std::string missing = path("missing/bus.log");
    const ChildResult child = run_in_child([&] {
        const int failed = CDecoder::open_log(missing.c_str());
        const int opened = CDecoder::open_log(name.c_str());
        CDecoder::close_log();
        std::exit(failed == -1 && opened == 0 ? 0 : 1);
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(contents(name), log_opened + log_closed);
}

TEST_F(Decoder, FileNameThatIsTooLongIsRefusedAndStoredCut) {
    const std::string name(5000, 'n');
    const ChildResult child = run_in_child([&name] {
        const int result = CDecoder::open_log(name.c_str());
        std::printf("%d %zu", result, ScriptedDecoder::log_filename().size());
    });
    EXPECT_EQ(child.out, "nodevik/decoder:\xC5 - Error while opening a file '" + name + "'\n-1 4095");
}

TEST_F(Decoder, DestroyingAnyDecoderClosesTheLog) {
    const std::string name = path("bus.log");
    const ScriptedDecoder other;
    {
        const CDecoder decoder;
        ASSERT_EQ(CDecoder::open_log(name.c_str()), 0);
    }
    EXPECT_FALSE(ScriptedDecoder::is_log_open());
    EXPECT_EQ(contents(name), log_opened + log_closed);
}

TEST_F(Decoder, DestroyingADecoderWithoutALogTouchesNoFile) {
    const std::string name = path("bus.log");
    ASSERT_EQ(CDecoder::open_log(name.c_str()), 0);
    CDecoder::close_log();
    { const CDecoder decoder; }
    EXPECT_EQ(contents(name), log_opened + log_closed);
}

TEST_F(Decoder, StaticDecoderClosesTheLogAtTheEndOfTheProcess) {
    const std::string name = path("bus.log");
    const ChildResult child = run_in_child([&name] {
        static CDecoder decoder;
        CDecoder::open_log(name.c_str());
        std::exit(0);
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(contents(name), log_opened + log_closed);
}

TEST_F(Decoder, ClosingTheLogLeavesThePendingLine) {
    CDecoder::open_log(path("log").c_str());
    CDecoder::add_printf("pending");
    CDecoder::close_log();
    EXPECT_STREQ(CDecoder::get_message(), "pending");
    EXPECT_EQ(contents(path("log")), log_opened + log_closed);
}
