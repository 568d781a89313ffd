// The calculation conditions the solver reads from a case file, in reading order, with their
// stored type and the condition under which each is read. The solver's start-up reads them in
// code (casefile_m.cpp); this table serves the case builder, its --check report and the manual.
#pragma once

#include <array>
#include <string_view>

namespace riffle {

enum class KeyType { integer, real, string };

// A key is read only when the value of `when` (an earlier key) compares to `whenvalue` as `op`
// says; an empty `when` means always. Real-valued switches are compared through their int32 view.
enum class WhenOp { always, equal, notequal };

struct KeySpec {
    std::string_view key;
    KeyType type;
    std::string_view variable;
    std::string_view meaning;
    WhenOp op = WhenOp::always;
    std::string_view when{};
    int whenvalue = 0;
    bool optional = false; // may be absent: the feature it switches is then off
};

inline constexpr std::array<KeySpec, 47> conditionkeys{{
    {"kmaxItm", KeyType::integer, "kmax",
     "vertical cells as a power of two: kmax = 2^n (n outside 0..31 gives 0)"},
    {"zminItm", KeyType::real, "zmin", "bottom of the computational box (m)"},
    {"zmaxItm", KeyType::real, "zmax", "top of the box, the water surface (m)"},
    {"viscItm", KeyType::real, "visc", "kinematic viscosity (m^2/s)"},
    {"densItm", KeyType::real, "dens", "fluid density (kg/m^3)"},
    {"gravityItm", KeyType::real, "gravity", "gravitational acceleration (m/s^2)"},
    {"dischargeItm", KeyType::real, "discharge", "target discharge through the west face (m^3/s)"},
    {"timetypeItm", KeyType::integer, "timetype",
     "1: fixed time step; 0: time step from the CFL condition"},
    {"timestepItm", KeyType::real, "dt", "fixed time step (s)", WhenOp::equal, "timetypeItm", 1},
    {"cflItm", KeyType::real, "cfl", "Courant number of the variable time step", WhenOp::equal,
     "timetypeItm", 0},
    {"xBoundItm", KeyType::integer, "(codes)", "x boundaries: periodic whatever the value"},
    {"yBoundItm", KeyType::integer, "(codes)", "0: periodic in y; otherwise log-law side walls"},
    {"zBoundItm", KeyType::integer, "(codes)",
     "0: free-slip top (zero gradient of u, v); otherwise no-slip top"},
    {"iInitialItm", KeyType::real, "iInitial",
     "initial-field switch: 0 gives the uniform flow discharge/(width*zmax)"},
    {"xInitItm", KeyType::real, "xInit", "initial u (m/s)", WhenOp::equal, "iInitialItm", 1},
    {"yInitItm", KeyType::real, "yInit", "initial v (m/s)", WhenOp::equal, "iInitialItm", 1},
    {"zInitItm", KeyType::real, "zInit", "initial w (m/s)", WhenOp::equal, "iInitialItm", 1},
    {"iPerturbItmItm", KeyType::real, "iPerturb",
     "initial disturbance switch (tested through its int32 view)"},
    {"amplitudeItm", KeyType::real, "amplitude", "amplitude of the initial disturbance (m/s)",
     WhenOp::equal, "iPerturbItmItm", 1},
    {"iBedPerturbItm", KeyType::integer, "ibedperturb", "1: roughen the bed with random bumps"},
    {"BAmplitudeItm", KeyType::real, "BAmplitude", "amplitude of the bed bumps (m)", WhenOp::equal,
     "iBedPerturbItm", 1},
    {"StatisticsItm",
     KeyType::integer,
     "stats.enabled",
     "1: running flow statistics at the nodes (means, second moments, eddy viscosity) into "
     "outpath/outfile_stats.cgns at each result write; optional, absent: off",
     WhenOp::always,
     {},
     0,
     true},
    {"StatStartItm", KeyType::real, "stats.start",
     "time (s) from which every step is added to the statistics", WhenOp::equal, "StatisticsItm", 1,
     true},
    {"starttimeItm", KeyType::real, "time", "start time (s)"},
    {"endtimeItm", KeyType::real, "endtime", "end time (s)"},
    {"HotstartItm", KeyType::integer, "(local)", "1: start from a restart file"},
    {"StartfileItm", KeyType::string, "startfile", "restart file to read", WhenOp::equal,
     "HotstartItm", 1},
    {"TimeInitialItm", KeyType::integer, "(local)",
     "0: restart the clock and step count at 0 after reading the restart file", WhenOp::equal,
     "HotstartItm", 1},
    {"OTimeItm", KeyType::real, "otime", "interval of result writes to the case file (s)"},
    {"HotoutItm", KeyType::integer, "hotout", "1: write restart files"},
    {"dtHotoutItm", KeyType::real, "dthotout", "restart-file interval (s)", WhenOp::equal,
     "HotoutItm", 1},
    {"TecplotItm", KeyType::integer, "tecplot", "1: write Tecplot files"},
    {"dtTecplotItm", KeyType::real, "dttecplot", "Tecplot-file interval (s)", WhenOp::equal,
     "TecplotItm", 1},
    {"outpathItm", KeyType::string, "outpath", "folder for restart, Tecplot and statistics files"},
    {"outfileItm", KeyType::string, "outfile",
     "base name of restart, Tecplot and statistics files"},
    {"BedItm", KeyType::integer, "ibed",
     "1: bed roughness from the grain size; 2: from the roughness height"},
    {"SedimentItm", KeyType::real, "ks", "bed grain size (mm)", WhenOp::equal, "BedItm", 1},
    {"RoughItm", KeyType::real, "ks", "roughness height (mm); divided by 2.5 on reading",
     WhenOp::equal, "BedItm", 2},
    {"iWallModelItm",
     KeyType::integer,
     "iwallmodel",
     "1: wall-layer model of the bed (the eddy viscosity next to the bed carries the wall law's "
     "stress); the case file then holds its shear stress on the bed surface, base /Bed, and the "
     "statistics file its time mean; optional, absent: off",
     WhenOp::always,
     {},
     0,
     true},
    {"smagorinskyItm", KeyType::real, "cs", "Smagorinsky constant"},
    {"iIBMItm", KeyType::integer, "iIBM", "immersed-boundary wall-law variant"},
    {"iCycleItm", KeyType::integer, "(local)", "1: V-cycle without reading igammaItm"},
    {"igammaItm", KeyType::integer, "igamma", "multigrid cycle index: 1 V-cycle, 2 W-cycle",
     WhenOp::notequal, "iCycleItm", 1},
    {"ipresItm", KeyType::integer, "ipres", "multigrid pre-smoothing sweeps"},
    {"ipostsItm", KeyType::integer, "iposts", "multigrid post-smoothing sweeps"},
    {"kpoismaxItm", KeyType::integer, "kpoismax",
     "maximum Poisson cycles per step (kpoismax+1 are made)"},
    {"epsItm", KeyType::integer, "eps",
     "Poisson tolerance setting (an integer; in effect the cycle count rules)"},
}};

} // namespace riffle
