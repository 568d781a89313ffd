// What a program of this build answers to --version and --help.
#pragma once

#include <string>

namespace riffle {

// "PROGRAM VERSION (commit C)" and a line with the build's options (MPI, CUDA, instruction set).
[[nodiscard]] std::string versiontext(const std::string& program);

// The usage and summary of the solver, as --help prints it.
[[nodiscard]] std::string solverhelp();

} // namespace riffle
