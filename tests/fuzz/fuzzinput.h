/// @file
/// Takes a fuzzer's bytes apart.

#ifndef TESTS_FUZZ_FUZZINPUT_H
#define TESTS_FUZZ_FUZZINPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>

/// The bytes of one run, taken from the front. Past their end every value is zero.
class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

    bool empty() const { return rest_.empty(); }

    std::uint8_t byte() {
        std::uint8_t value = 0;
        bytes({&value, 1});
        return value;
    }

    std::uint16_t word() { return static_cast<std::uint16_t>(byte() | byte() << 8); }

    std::uint32_t dword() { return word() | static_cast<std::uint32_t>(word()) << 16; }

    /// Fills all of @p target.
    void bytes(std::span<std::uint8_t> target) {
        const std::size_t count = std::min(target.size(), rest_.size());
        std::fill(std::copy_n(rest_.begin(), count, target.begin()), target.end(), std::uint8_t{0});
        rest_ = rest_.subspan(count);
    }

private:
    std::span<const std::uint8_t> rest_;
};

/// What the library prints is not looked at.
inline void silence_standard_output() {
    static const bool silenced = std::freopen("/dev/null", "w", stdout) != nullptr;
    static_cast<void>(silenced);
}

#endif
