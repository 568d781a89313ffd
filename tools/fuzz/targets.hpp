// The readers under fuzzing, each as one function of the input text: the libFuzzer targets
// (fuzzer.cpp) and the unit test that replays the kept inputs (test_regressions.cpp) call the
// same ones. Each returns true when the reader accepts the text and false when it refuses it
// with its own error (RestartError, RecipeError); anything else escapes as an exception or a
// sanitizer report, and that is a fault of the reader.
#pragma once

#include <string_view>

namespace riffle::fuzz {

// restartparse into a 4 x 2 x 2 grid (two multigrid levels) and the dry run restartscan of the
// same grid, which must agree.
bool restart(std::string_view text);

// parserecipe, then buildcase for a bed grid of at most 2^14 nodes not read from a file.
bool recipe(std::string_view text);

// parsepoints, then the interpolator at the corners and centre of the points' box, around it
// and far from it.
bool bedcsv(std::string_view text);

} // namespace riffle::fuzz
