// Every input kept from fuzzing the readers, replayed through the function the fuzzer ran: each
// must be accepted or refused with the reader's own error as its name says ("accept-..." or
// "refuse-..."); a crash, a sanitizer report (Debug) or any other exception fails the test.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/targets.hpp"

TEST(Fuzz, KeptInputsAreAcceptedOrRefused) {
    namespace fs = std::filesystem;
    const fs::path kept = fs::path(RIFFLE_TEST_SOURCE_DIR) / "tools/fuzz/regressions";
    int refused = 0;
    for (const auto& [name, target] : {std::pair{"restart", &riffle::fuzz::restart},
                                       {"recipe", &riffle::fuzz::recipe},
                                       {"bedcsv", &riffle::fuzz::bedcsv}}) {
        int files = 0; // a reader whose inputs went missing is not checked
        for (const auto& entry : fs::directory_iterator(kept / name)) {
            const std::string file = entry.path().filename().string();
            const bool accept = file.starts_with("accept-");
            ASSERT_TRUE(accept || file.starts_with("refuse-")) << name << "/" << file;
            std::ifstream in(entry.path(), std::ios::binary);
            EXPECT_EQ(target(std::string(std::istreambuf_iterator<char>(in), {})), accept) << file;
            refused += !accept, ++files;
        }
        EXPECT_GT(files, 0) << name;
    }
    EXPECT_GE(refused, 3);
}
