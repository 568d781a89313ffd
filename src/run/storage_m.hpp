// The storage of a run: the grid and its geometry, the calculation conditions, the flow fields on
// the staggered grid, the multigrid hierarchy, the bed's state and the run's clock and outputs.
//
// Grid: imax x jmax x kmax cells of dx x dy x dz. Cell (i,j,k), i = 1..imax, spans
// xmin + (i-1) dx .. xmin + i dx (likewise in y and z); index 0 and imax+1 are ghost cells.
// Staggering: p, nut, vort, qc, the strain rates and fu/fv/fw sit at cell centres
// (0:imax+1, 0:jmax+1, 0:kmax+1); u on x-faces (u(i) between cells i and i+1) with one more ghost
// layer at i = -1; v on y-faces with j = -1; w on z-faces with k = -1. The flag arrays share the
// ranges of the variable they classify.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ibm/forcinglist_m.hpp"
#include "run/decomposition_m.hpp"
#include "run/field3.hpp"

namespace riffle {

using Field3d = Field3<double>;
using Field3i = Field3<std::int32_t>;
using Field2d = Field2<double>;

// One level of the multigrid hierarchy: cell counts ni x nj x nk, cell-centred arrays over
// (0:ni+1, 0:nj+1, 0:nk+1). lphi is allocated only by operatorp, on its first call: nothing in
// a run reads it, so a run does not reserve it.
struct mglevel {
    int ni = 0, nj = 0, nk = 0;
    Field3d phi;  // pressure increment
    Field3d lphi; // operator applied to phi (allocated by operatorp)
    Field3d res;  // residual
    Field3d src;  // source (right-hand side)
};

// Faces of the box, in the order of the boundary-code arrays (index 1..6; index 0 unused).
enum Face : int { west = 1, east = 2, south = 3, north = 4, bottom = 5, top = 6 };

// The storage of a run in parts that say what they are; each routine of the time step takes the
// parts it reads and writes.

// The grid and its geometry: cell counts and spacings, the box, the multigrid depth, this rank's
// block of the box, and the bed. On several ranks imax and jmax count the cells of this rank's
// block (dec.ni, dec.nj).
struct Geometry {
    int imax = 0, jmax = 0, kmax = 0;
    double dx = 0.0, dy = 0.0, dz = 0.0;
    double xmin = 0.0, xmax = 0.0, ymin = 0.0, ymax = 0.0, zmin = 0.0, zmax = 0.0;
    int lmin = 0;
    Field2d zb;        // bed elevation at the cell centres, over (0:imax+1, 0:jmax+1)
    Decomposition dec; // the block of this rank; one rank: nranks == 1, and dec is not read

    // The offset of this rank's block in the whole box (0 on one process), and the whole box's
    // cell counts in x and y.
    [[nodiscard]] int ioffset() const { return dec.distributed() ? dec.i0 : 0; }
    [[nodiscard]] int joffset() const { return dec.distributed() ? dec.j0 : 0; }
    [[nodiscard]] int iwhole() const { return dec.distributed() ? dec.imaxg : imax; }
    [[nodiscard]] int jwhole() const { return dec.distributed() ? dec.jmaxg : jmax; }
};

// The calculation conditions read from the case file; fixed during a run.
struct Conditions {
    double visc = 0.0, dens = 0.0, gravity = 0.0, discharge = 0.0;
    int timetype = 0;
    double cfl = 0.0;
    // The two initial-state switches are read as reals into 8-byte slots; every test looks only
    // at the low 32 bits of the slot taken as a signed integer (see int32view).
    double iInitial = 0.0, iPerturb = 0.0;
    double xInit = 0.0, yInit = 0.0, zInit = 0.0, amplitude = 0.0, BAmplitude = 0.0;
    int ibed = 0;
    double ks = 0.0; // bed grain size in millimetres
    double cs = 0.0; // Smagorinsky constant
    int iIBM = 0;
    // "iWallModelItm" = 1: the eddy viscosity next to the bed carries the wall law's stress
    // (wallmodel_m.hpp); 0 or absent: the eddy viscosity of the plain solver.
    int iwallmodel = 0;
    int igamma = 0, ipres = 0, iposts = 0, kpoismax = 0;
    int eps = 0; // Poisson tolerance setting, kept as the integer read

    // Boundary-type codes (0 periodic, -1 prescribed value, 1 prescribed gradient) and values,
    // indexed by Face 1..6.
    std::array<int, 7> ibu{}, ibv{}, ibw{}, ibp{};
    std::array<double, 7> ubval{}, vbval{}, wbval{};
};

// The flow: velocities, pressure, their previous levels and right-hand sides, the eddy viscosity
// with the strain rates it comes from, vorticity and Q, and the driving accelerations (set each
// step by the driving-force routine).
struct FlowFields {
    Field3d u, v, w, p;
    Field3d uo, vo, wo;
    Field3d fu, fv, fw, fuo, fvo, fwo;
    Field3d nut;
    Field3d s11, s22, s33, s12, s13, s23, sabs;
    Field3d vort, qc;
    double fx = 0.0, fy = 0.0, fz = 0.0;
};

struct CoarseLevels;

// The multigrid hierarchy of the pressure increment: on several ranks each block's share of
// each level down to the level of the block unit, and on rank 0 the coarser levels of the whole
// box, where the coarse problem is gathered and solved (`whole`).
// The order in which the multigrid's smoother visits the vertical lines of a level: row by row
// (i innermost, then j, the rows shared among threads), or by colours, the lines with i + j even
// first and then the others, each colour's lines all at once.
enum class LineOrder : int { rows = 0, colours = 1 };

struct Hierarchy {
    std::vector<mglevel> mglevels; // level l lives at mglevels[-l]; use mg(l)
    LineOrder lineorder = LineOrder::rows;
    // The coarsest level is spread over the blocks and gathered onto rank 0 to be solved there,
    // where `whole` holds the levels of the whole box.
    bool gathered = false;
    std::unique_ptr<CoarseLevels> whole;

    Hierarchy();
    Hierarchy(Hierarchy&&) noexcept;
    Hierarchy& operator=(Hierarchy&&) noexcept;
    ~Hierarchy();
    [[nodiscard]] mglevel& mg(int l) { return mglevels[static_cast<std::size_t>(-l)]; }
    [[nodiscard]] const mglevel& mg(int l) const { return mglevels[static_cast<std::size_t>(-l)]; }
};

// The whole box's coarse levels on rank 0 of several: the grid of the whole box (mg(lmin) gathered
// from the blocks' coarsest and all coarser ones), the pressure codes they are solved with, and
// the levels themselves.
struct CoarseLevels {
    Geometry grid;
    std::array<int, 7> ibp{};
    Hierarchy levels;
};

// The bed as the flow sees it: the classification of every point (1 fluid, 0 forcing, -1 solid)
// now and at the previous level, the forcing points derived from it, and the bed shear stress.
struct BedState {
    Field3i iflagu, iflagv, iflagw, iflagp;
    Field3i iflaguo, iflagvo, iflagwo;
    ibm::ForcingLists forcing; // forcing points of the bed, derived from the flags; never saved
    // The classification (forcing.classification) whose flags the old flags hold, while the lists
    // are in use; any other value: the old flags must be copied again.
    std::uint64_t oldflagsof = ~std::uint64_t{0};
    // The bed shear stress under each cell column, over (0:imax+1, 0:jmax+1) and three planes
    // (wallmodel_m.hpp): k = 0 u*^2, k = 1 and 2 its x and y components along the tangential
    // velocity (kinematic, m^2/s^2). Allocated only with the wall-layer model on.
    Field3d bedshear;
};

// The run's clock, its report and its outputs: step, time and step size, the Poisson solve's
// report, output times and files, the point data and statistics that restart files carry.
struct RunClock {
    int istep = 0;
    double time = 0.0, endtime = 0.0;
    double dt = 0.0; // the step size: read, or set each step from the Courant number
    int npois = 0;
    double divmax = 0.0, divtotal = 0.0;

    double otime = 0.0, dthotout = 0.0, dttecplot = 0.0;
    int hotout = 0, tecplot = 0;
    std::string outpath, outfile, startfile;
    std::string casename; // the case file, as named on the command line

    // Point data kept in restart files: npt points, six reals and one integer each. No
    // computation produces such points; npt is 0 after the initial state.
    int npt = 0;
    std::array<std::vector<double>, 6> ptdata;
    std::vector<std::int32_t> ptindex;

    // Running sums of the flow statistics at the grid nodes (statistics_m.hpp); the fields are
    // allocated only when the statistics are switched on.
    struct StatisticSums {
        int enabled = 0;    // "StatisticsItm" = 1
        double start = 0.0; // "StatStartItm": steps ending at or after it are sampled
        long long samples = 0;
        double first = 0.0, last = 0.0; // times of the first and the last sample
        double sumfx = 0.0;             // the driving acceleration fx, summed over the samples
        // u v w p uu vv ww uw uv vw nut, summed node by node over the samples (0 where the
        // node is at or below the bed, where nothing is added); p is the step's pressure less
        // its mean over the fluid nodes (statistics_m.hpp)
        std::array<Field3d, 11> sum;
        // With the wall-layer model on: the bed shear stress at the bed's nodes (magnitude, x and
        // y components, Pa) summed over its own count of samples, which differs from `samples`
        // only after a restart file without these sums. Planes over (0:imax, 0:jmax, 0:0),
        // allocated with the sums above (the model's switch is read after a restart file).
        long long bedsamples = 0;
        std::array<Field3d, 3> bedsum;
        // With the wall-layer model on too: the x force per unit plan area (Pa) of the step's
        // pressure on the bed region and the driving force on the flow's own u faces per unit
        // plan area (statistics_m.hpp's bedforces), summed over their own count of samples.
        long long forcesamples = 0;
        double sumpressuredrag = 0.0, sumflowdriving = 0.0;
    } stats;
};

// The whole storage of a run, created once by the driver. Its members keep the names used
// throughout the solver (u, iflagu, kpoismax, ...); scalars start at zero: a condition that is
// absent from the case file leaves its variable at zero (ks excepted, see casefile_m).
struct Storage : Geometry, Conditions, FlowFields, Hierarchy, BedState, RunClock {
    [[nodiscard]] Geometry& geometry() { return *this; }
    [[nodiscard]] const Geometry& geometry() const { return *this; }
    [[nodiscard]] Conditions& conditions() { return *this; }
    [[nodiscard]] const Conditions& conditions() const { return *this; }
    [[nodiscard]] FlowFields& flow() { return *this; }
    [[nodiscard]] const FlowFields& flow() const { return *this; }
    [[nodiscard]] Hierarchy& hierarchy() { return *this; }
    [[nodiscard]] const Hierarchy& hierarchy() const { return *this; }
    [[nodiscard]] BedState& bed() { return *this; }
    [[nodiscard]] const BedState& bed() const { return *this; }
    [[nodiscard]] RunClock& clock() { return *this; }
    [[nodiscard]] const RunClock& clock() const { return *this; }
};

// The low 32 bits of an 8-byte real's bit pattern, as a signed integer.
[[nodiscard]] std::int32_t int32view(double slot);

// Number of the coarsest multigrid level (<= 0) of a grid of imax x jmax x kmax cells: halve the
// cell counts while imax > 1 and jmax, kmax >= 2 (none when imax < 2). Level l has
// imax >> -l x jmax >> -l x kmax >> -l cells.
[[nodiscard]] int coarsestlevel(int imax, int jmax, int kmax);

// Sets st.lmin = coarsestlevel(st.imax, st.jmax, st.kmax).
void levelcount(Storage& st);

// Bytes that allocation() will ask for, so an impossible grid is refused before any is taken.
[[nodiscard]] std::uint64_t allocationbytes(const Storage& st);

// Physical memory of the machine: a grid that needs more can never run.
[[nodiscard]] std::uint64_t physicalmemory();

// Allocates every field and the multigrid hierarchy for the grid in st (levelcount first).
// A request that cannot be met ends the run through errorreport(2).
void allocation(Storage& st);

// Fatal-error reporter: prints the message of `code`, pauses for the operator and stops the
// program with a non-zero status. Codes: 1 parameters, 2 allocation, 3 restart read. A
// non-empty `detail` (what exactly is wrong, one line) follows the message.
[[noreturn]] void errorreport(int code, const std::string& detail = {});

} // namespace riffle
