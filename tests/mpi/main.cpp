// Entry point of the distributed tests: the message layer is started around GoogleTest, and every
// rank runs every test (mpiexec fails when any rank fails).
#include <gtest/gtest.h>

#include "run/halo_m.hpp"

#if defined(__SANITIZE_ADDRESS__)
// Open MPI keeps what it allocates at start-up until the process ends.
extern "C" const char* __lsan_default_options() { return "detect_leaks=0"; }
#endif

int main(int argc, char** argv) {
    const riffle::Ranks ranks(&argc, &argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
