// Every input kept from fuzzing the readers, replayed through the function the fuzzer ran: each
// must be accepted or refused with the reader's own error as its name says ("accept-..." or
// "refuse-..."); a crash, a sanitizer report (Debug) or any other exception fails the test.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/targets.hpp"

namespace riffle {
namespace {

namespace fs = std::filesystem;

TEST(Fuzz, KeptInputsAreAcceptedOrRefused) {
    const fs::path kept = fs::path(RIFFLE_TEST_SOURCE_DIR) / "tests/fuzz/regressions";
    int refused = 0;
    for (const auto& [name, target] : {std::pair{"restart", &fuzz::restart},
                                       {"recipe", &fuzz::recipe}, {"bedcsv", &fuzz::bedcsv}}) {
        int files = 0;
        for (const auto& entry : fs::directory_iterator(kept / name)) {
            const std::string file = entry.path().filename().string();
            const bool accept = file.starts_with("accept-");
            ASSERT_TRUE(accept || file.starts_with("refuse-")) << name << "/" << file;
            std::ifstream in(entry.path(), std::ios::binary);
            const std::string text{std::istreambuf_iterator<char>(in), {}};
            EXPECT_EQ(target(text), accept) << name << "/" << file;
            refused += accept ? 0 : 1;
            ++files;
        }
        EXPECT_GT(files, 0) << name;  // a reader whose inputs went missing is not checked
    }
    EXPECT_GE(refused, 3);
}

}  // namespace
}  // namespace riffle
