// PDO mapping and reception: arbitrary mappings, then arbitrary frames into and out of them.
//
// What the library ends the process for is part of its contract, so exit is caught here and starts the next
// input.

#include <array>
#include <csetjmp>
#include <cstdint>
#include <vector>

#include "nodevik/pdo.h"
#include "tests/fuzz/fuzzinput.h"

namespace {

bool in_library = false;
std::jmp_buf ended;

}  // namespace

// The linker puts this in the place of exit. The fuzzer's own end goes through.
extern "C" [[noreturn]] void __real_exit(int);
extern "C" [[noreturn]] void __wrap_exit(int);
void __wrap_exit(int status) {
    if (!in_library) {
        __real_exit(status);
    }
    std::longjmp(ended, 1);  // exit may not throw
}

namespace {

// Each variable stands alone on the heap, so that a byte too many is seen.
using Variables = std::vector<std::vector<std::uint8_t>>;

void use_pdo(FuzzInput& input, Variables& variables) {
    PDO pdo(input.word());
    while (!input.empty()) {
        const std::uint8_t operation = input.byte();
        if (operation % 4 == 0) {
            const auto type = static_cast<PDO::maptype>(input.byte() % 12);
            const std::array<std::size_t, 12> sizes = {1, 1, 2, 4, 1, 2, 4, 1, 2, 4, 8, 8};
            variables.emplace_back(sizes[type]);
            pdo.mapref(input.byte(), type, variables.back().data());
        } else if (operation % 4 == 1) {
            const std::uint8_t width = input.byte() % 5;
            variables.emplace_back(width == 0 ? 1 : width);
            pdo.mapbitref(input.byte(), width, variables.back().data());
        } else if (operation % 4 == 2) {
            std::uint8_t frame[8];
            input.bytes(frame);
            pdo.create_tpdo(frame);
        } else {
            pdo.create_rpdo();
            pdo.pdo_changed();
            const auto position = static_cast<signed char>(input.byte());
            pdo.set_byte16(position, input.word());
            pdo.set_byte32(position, input.dword());
            pdo.neg_bit(position);
            pdo[position] = pdo.get_bit(position) ? 1 : 0;
            pdo.map_object(input.word(), input.byte(), input.byte());
            pdo.print_mappings();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    silence_standard_output();
    FuzzInput input(data, size);
    Variables variables;
    in_library = true;
    if (setjmp(ended) == 0) {
        use_pdo(input, variables);
    }
    in_library = false;
    return 0;
}
