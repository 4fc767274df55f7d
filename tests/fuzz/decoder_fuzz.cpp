// The master's decoder, fed with arbitrary frames under arbitrary filters.

#include "nodevik/canopen.h"
#include "tests/fuzz/fuzzinput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    silence_standard_output();
    FuzzInput input(data, size);
    CCANopen master;
    PDO mapped(0x181);
    master.add_tpdo(mapped);
    while (!input.empty()) {
        if (input.byte() % 8 == 0) {
            master.set_typefilter(input.byte());
        }
        const std::uint32_t id = input.byte() % 16 == 0 ? input.dword() : input.word();
        const std::uint8_t length = input.byte();
        std::uint8_t frame[8];
        input.bytes(frame);
        master.print_message(id, length, frame);
        CDecoder::add_printf(" [R]");
    }
    CDecoder::print();
    return 0;
}
