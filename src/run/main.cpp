// riffle: large-eddy simulation of open-channel flow over a bed. One argument: the case file
// (or --version, --help).
// Started as a plain program it runs as one process; under mpirun, as one rank of many.
#include <cstdio>
#include <string_view>

#include "run/driver_m.hpp"
#include "run/halo_m.hpp"
#include "run/version_m.hpp"

#if defined(RIFFLE_MPI) && defined(__SANITIZE_ADDRESS__)
// Open MPI keeps what it allocates at start-up until the process ends, in libraries it loads and
// unloads itself, where no suppression can name them: leak reports would be its own.
extern "C" const char* __lsan_default_options() { return "detect_leaks=0"; }
#endif

int main(int argc, char** argv) {
    // These two words alone are answered; any other command line is the solver's.
    if (argc == 2 &&
        (std::string_view(argv[1]) == "--version" || std::string_view(argv[1]) == "--help")) {
        std::fputs(std::string_view(argv[1]) == "--version" ? riffle::versiontext("riffle").c_str()
                                                            : riffle::solverhelp().c_str(),
                   stdout);
        return 0;
    }
    const riffle::Ranks ranks(&argc, &argv);
    return riffle::riffle(argc, argv);
}
