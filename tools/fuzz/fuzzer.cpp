// One libFuzzer target per reader, chosen at compile time by RIFFLE_FUZZ_TARGET (restart,
// recipe or bedcsv).
#include <cstddef>
#include <cstdint>

#include "fuzz/targets.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    (void)riffle::fuzz::RIFFLE_FUZZ_TARGET({reinterpret_cast<const char*>(data), size});
    return 0;
}
