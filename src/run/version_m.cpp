#include "run/version_m.hpp"

#include "riffle_version.hpp"

namespace riffle {

std::string versiontext(const std::string& program) {
    std::string text = program + " " + build::version;
    if (*build::commit != '\0') text += std::string(" (commit ") + build::commit + ")";
    return text + "\nbuilt with " + build::options + "\n";
}

std::string solverhelp() {
    return "usage: riffle CASE.cgns\n"
           "       riffle --version | --help\n"
           "\n"
           "Large-eddy simulation of turbulent open-channel flow over a river bed. CASE.cgns "
           "holds\n"
           "the bed (the grid's node attribute \"Elevation\") and the calculation conditions; "
           "riffle\n"
           "computes the 3-D flow and writes velocity, pressure, vorticity and Q criterion back "
           "into\n"
           "it at the output times, with restart and Tecplot files where the case asks for them.\n"
           "A case file is made from a text recipe by riffle-case; riffle-stats draws the flow\n"
           "statistics.\n"
           "\n"
           "Threads: one per core (OMP_NUM_THREADS asks for fewer). Several processes: mpirun -np "
           "N\n"
           "riffle CASE.cgns. RIFFLE_SMOOTHER=colours takes the pressure smoother's lines by "
           "colours.\n"
           "\n"
           "Exit status: 0 when the run ends at its end time, 1 on an error (one line says "
           "which),\n"
           "75 when stopped by a signal after writing a restart file.\n";
}

} // namespace riffle
