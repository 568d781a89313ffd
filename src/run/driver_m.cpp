#include "run/driver_m.hpp"

#include <omp.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <string>

#include "flow/boundary_m.hpp"
#include "flow/forces_m.hpp"
#include "flow/smagorinsky_m.hpp"
#include "flow/timestep_m.hpp"
#include "flow/wall_m.hpp"
#include "flow/xvelocity_m.hpp"
#include "flow/yvelocity_m.hpp"
#include "flow/zvelocity_m.hpp"
#include "ibm/flagdeter_m.hpp"
#include "ibm/forcinglist_m.hpp"
#include "ibm/immersing_m.hpp"
#include "ibm/wallmodel_m.hpp"
#include "platform/kavellib.hpp"
#include "pressure/correction_m.hpp"
#include "pressure/divergence_m.hpp"
#include "pressure/multigridp_m.hpp"
#include "pressure/vorticity_m.hpp"
#include "run/casecheck_m.hpp"
#include "run/console_m.hpp"
#include "run/guard_m.hpp"
#include "run/halo_m.hpp"
#include "run/initial_m.hpp"
#include "run/loops.hpp"
#include "run/messages.hpp"
#include "run/restart_m.hpp"
#include "run/statistics_m.hpp"
#include "run/tecplot_m.hpp"
#include "run/wholestate_m.hpp"

namespace riffle {

namespace pf = platform;

namespace {

constexpr std::size_t textlength = 200; // the length of the driver's file-name buffers

// Below this step the velocities inside the bed are zeroed every step. A fixed constant of the
// driver: it deliberately does not scale with the grid.
constexpr double zerosolidstep = 0.0008;

// A one-line error on standard error, after what the console has printed so far.
void printerror(const char* message) {
    std::fflush(stdout);
    console::clearprogress();
    std::fprintf(stderr, "%s\n", message);
    std::fflush(stderr);
}

[[noreturn]] void stopwith(const char* message) {
    printerror(message);
    std::exit(EXIT_FAILURE);
}

// After a failed write: the case file is given up at its last commit (a close would try to
// write again, on a full disk too) and the process ends without the libraries' exit handlers,
// which would close it.
[[noreturn]] void abandonwith(const char* message) {
    printerror(message);
    pf::CG_KAVEL_ABANDON_F();
    std::_Exit(EXIT_FAILURE);
}

} // namespace

std::int32_t trunc32(double x) {
    if (!(x > -2147483649.0 && x < 2147483648.0)) return INT32_MIN;
    return static_cast<std::int32_t>(x);
}

bool crossed(double time, double told, double interval) {
    return trunc32(time / interval) != trunc32(told / interval);
}

void zerosolid(const Geometry& grid, const BedState& bedstate, FlowFields& flow) {
    const int imax = grid.imax, jmax = grid.jmax, kmax = grid.kmax;
    const auto fu = bedstate.iflagu.cview(), fv = bedstate.iflagv.cview(),
               fw = bedstate.iflagw.cview();
    const auto fp = bedstate.iflagp.cview();
    const auto u = flow.u.view(), v = flow.v.view(), w = flow.w.view(), nut = flow.nut.view();
    // Every point is set from its own flag alone.
    loops::forbox({{0, imax + 1}, {0, jmax + 1}, {0, kmax + 1}}, [=](int i, int j, int k) {
        if (fu(i, j, k) == -1) u(i, j, k) = 0.0;
        if (fv(i, j, k) == -1) v(i, j, k) = 0.0;
        if (fw(i, j, k) == -1) w(i, j, k) = 0.0;
        if (fp(i, j, k) == -1) nut(i, j, k) = 0.0;
    });
}

void storeold(const Geometry& grid, FlowFields& flow, BedState& bedstate) {
    const int imax = grid.imax, jmax = grid.jmax, kmax = grid.kmax;
    const auto u = flow.u.cview(), v = flow.v.cview(), w = flow.w.cview();
    const auto fu = bedstate.iflagu.cview(), fv = bedstate.iflagv.cview(),
               fw = bedstate.iflagw.cview();
    const auto uo = flow.uo.view(), vo = flow.vo.view(), wo = flow.wo.view();
    const auto fuo = bedstate.iflaguo.view(), fvo = bedstate.iflagvo.view(),
               fwo = bedstate.iflagwo.view();
    // The old flags already hold the flags of an unchanged classification: only the velocities
    // need copying then.
    const bool copyflags =
        !(bedstate.forcing.enabled && bedstate.oldflagsof == bedstate.forcing.classification);
    const loops::Box all{{0, imax + 1}, {0, jmax + 1}, {0, kmax + 1}};
    loops::forbox(all, [=](int i, int j, int k) {
        uo(i, j, k) = u(i, j, k);
        vo(i, j, k) = v(i, j, k);
        wo(i, j, k) = w(i, j, k);
    });
    if (copyflags) {
        loops::forbox(all, [=](int i, int j, int k) {
            fuo(i, j, k) = fu(i, j, k);
            fvo(i, j, k) = fv(i, j, k);
            fwo(i, j, k) = fw(i, j, k);
        });
    }
    bedstate.oldflagsof =
        bedstate.forcing.enabled ? bedstate.forcing.classification : ~std::uint64_t{0};
}

void stepreport(const Storage& st) {
    if (st.dec.distributed() && myrank() != 0) return; // rank 0 reports for all
    console::writeline(messages::label_step, st.istep);
    console::writeline(messages::label_dt, st.dt);
    console::writeline(messages::label_time, st.time);
    console::writeline(messages::label_npois, st.npois);
    console::writeline(messages::label_divmax, st.divmax);
    console::writeline(messages::label_divtotal, st.divtotal);
    console::writeline(messages::report_rule);
    std::fflush(stdout);
}

namespace {

// Several ranks: the box is divided into blocks of whole columns, and this rank keeps its block
// of every field; the node fields it averages for output cover its block too.
void divide(Storage& st, NodeArrays& nodes) {
    const int n = rankcount();
    const int unit = chooseunit(n, st.imax, st.jmax, coarsestlevel(st.imax, st.jmax, st.kmax));
    if (unit == 0) errorreport(1, undividable(n, st.imax, st.jmax));
    st.dec = decompose(rankgrid(n, st.imax, st.jmax, unit), myrank(), st.imax, st.jmax,
                       st.ibp[west] == 0, st.ibp[south] == 0, unit);
    st.imax = st.dec.ni;
    st.jmax = st.dec.nj;
    const Range ri{0, st.imax}, rj{0, st.jmax}, rk{0, st.kmax};
    for (Field3d* a : {&nodes.z3, &nodes.node})
        a->allocate(ri, rj, rk);
    nodeheights(st, nodes.z3);
}

} // namespace

void startup(Storage& st, NodeArrays& nodes) {
    gridsetup(st, nodes);
    if (myrank() == 0) writegrid(st, nodes);
    // The x and y node coordinates served the grid write and nothing reads them again; giving
    // them back before the fields are allocated lowers the run's peak memory.
    nodes.x3 = Field3d{};
    nodes.y3 = Field3d{};
    readphysics(st);
    if (rankcount() > 1) divide(st, nodes);
    allocation(st);

    readinitialconditions(st);
    initialfields(st);

    int ibedperturb = 0;
    readinteger("iBedPerturbItm", ibedperturb);
    if (ibedperturb == 1) {
        readreal("BAmplitudeItm", st.BAmplitude);
        bedroughening(st, nodes.elev);
    }
    buildzb(st, nodes.elev);

    readstatistics(st); // before a restart file, which may carry the running sums

    st.istep = 0;
    readreal("starttimeItm", st.time);
    readreal("endtimeItm", st.endtime);
    int hotstart = 0;
    readinteger("HotstartItm", hotstart);
    if (hotstart == 1) {
        readstring("StartfileItm", st.startfile);
        if (st.dec.distributed()) {
            // Rank 0 reads the file into the whole box and hands each block its part.
            if (Storage* whole = wholestate(st)) restartread(*whole, st.startfile);
            scatterrestart(st);
        } else {
            restartread(st, st.startfile);
        }
        int timeinitial = 0;
        readinteger("TimeInitialItm", timeinitial);
        if (timeinitial == 0) {
            st.istep = 0; // keep the restart's fields, drop its clock
            st.time = 0.0;
        }
    }
    readoutputsettings(st);

    ibm::flagdeter(st);

    readroughness(st);
    ibm::uselists(st); // the bed is fixed from here on: forcing points kept in lists

    if (st.iwallmodel == 1) {
        // The bed shear stress of the initial flow, by the wall-law variant the run will use
        // (read again with the solver settings below, to the same value).
        readinteger("iIBMItm", st.iIBM);
        // The law reads the velocity around the image points, across the block faces too: the
        // ghost layers of the initial flow from the neighbours and the boundaries.
        velocityboundaries(st.geometry(), st.conditions(), st.flow());
        ibm::wallnut(st);
    }
    // With the wall-layer model on, the bed's surface (base /Bed) for the bed's fields.
    if (st.iwallmodel == 1 && myrank() == 0) writebedsurface(st, nodes);
    pressure::vorticity(st.geometry(), st.conditions(), st.flow());
    writeresults(st, nodes);

    // Read only now, after the initial write: the first step is the first to use them.
    readsolversettings(st);
}

void velocityboundaries(const Geometry& grid, const Conditions& cond, FlowFields& flow) {
    flow::boundaryu(grid, cond, flow);
    flow::boundaryv(grid, cond, flow);
    flow::boundaryw(grid, cond, flow);
}

// The side-wall laws run only where all three velocity codes of the face are walls.
// On several ranks, the blocks that lie on the wall; then every block takes the first rows the
// neighbours changed near their faces (the bed forcing reads them next).
void sidewalls(const Geometry& grid, const Conditions& cond, FlowFields& flow) {
    const bool blocks = grid.dec.distributed();
    const auto& ibu = cond.ibu;
    const auto& ibv = cond.ibv;
    const auto& ibw = cond.ibw;
    const bool s = ibu[south] == -1 && ibv[south] == -1 && ibw[south] == -1;
    const bool n = ibu[north] == -1 && ibv[north] == -1 && ibw[north] == -1;
    if (s && (!blocks || grid.dec.ownsface(south))) flow::walls(grid, cond, flow);
    if (n && (!blocks || grid.dec.ownsface(north))) flow::walln(grid, cond, flow);
    if (blocks && (s || n)) {
        for (Field3d* f : {&flow.u, &flow.w})
            exchangeinside(grid.dec, *f, grid.imax, grid.jmax);
    }
}

void advance(Storage& st, RoutineTimers* timers) {
    RoutineTimers none(false);
    RoutineTimers& t = timers ? *timers : none;
    // The parts of the storage, as each routine below reads (const) and writes them.
    const Geometry& grid = st.geometry();
    const Conditions& cond = st.conditions();
    FlowFields& fields = st.flow();
    RunClock& clock = st.clock();
    BedState& bedstate = st.bed();
    Hierarchy& levels = st.hierarchy();
    clock.istep = clock.istep + 1;
    if (cond.timetype == 0) t.time("timestep", [&] { flow::timestep(grid, cond, fields, clock); });
    clock.time = clock.time + clock.dt;

    t.time("smagorinsky", [&] {
        flow::smagorinsky(grid, cond, fields, bedstate);
    });                                    // from the velocity at the start
    bedstate.forcing.wall.current = false; // the predictor changes the velocity next
    t.time("forces", [&] { flow::forces(grid, cond, bedstate, fields); });
    t.time("predictor", [&] {
        flow::xvelocity(grid, cond, clock, fields);
        flow::yvelocity(grid, cond, clock, fields);
        flow::zvelocity(grid, cond, clock, fields);
    });
    // On blocks, the side walls and the bed forcing read the predicted velocities of the
    // neighbour blocks near their faces.
    if (grid.dec.distributed()) {
        t.time("halo", [&] {
            for (Field3d* f : {&fields.u, &fields.v, &fields.w})
                exchangeinside(grid.dec, *f, grid.imax, grid.jmax);
        });
    }
    t.time("side walls", [&] { sidewalls(grid, cond, fields); });
    t.time("immersing", [&] { ibm::immersing({grid, cond, fields, bedstate}); });
    if (clock.dt < zerosolidstep) t.time("zerosolid", [&] { zerosolid(grid, bedstate, fields); });
    t.time("boundaries", [&] { velocityboundaries(grid, cond, fields); });
    t.time("poisson", [&] { pressure::poisson(grid, cond, clock, fields, levels, clock.npois); });
    t.time("correction", [&] { pressure::correction(grid, cond, clock, levels, fields); });
    t.time("boundaries", [&] { velocityboundaries(grid, cond, fields); });
    t.time("divergence", [&] { pressure::divergence(grid, fields, clock); });
    t.time("side walls", [&] { sidewalls(grid, cond, fields); });
    t.time("immersing", [&] { ibm::immersing({grid, cond, fields, bedstate}); });
    t.time("boundaries", [&] { velocityboundaries(grid, cond, fields); });
    t.time("smagorinsky",
           [&] { flow::smagorinsky(grid, cond, fields, bedstate); }); // from the corrected velocity
    // The wall-layer model's friction velocities stay those of the velocity until the next step's
    // first eddy-viscosity update, which then takes them as they are.
    bedstate.forcing.wall.current = cond.iwallmodel == 1;
    t.time("flagdeter", [&] { ibm::flagdeter({grid, cond, fields, bedstate}); });
    t.time("storeold", [&] { storeold(grid, fields, bedstate); });
}

namespace {

// What the run has written at the current step.
struct Written {
    bool results = false, restart = false;
};

void restartoutput(const Storage& st) {
    const Storage* from = filesource(st, Part::restart);
    if (from) restartwrite(*from, st.istep, st.time, st.outpath, st.outfile);
}

void resultsoutput(Storage& st, NodeArrays& nodes) {
    pressure::vorticity(st.geometry(), st.conditions(), st.flow());
    writeresults(st, nodes);
    if (st.stats.enabled == 1) statisticsoutput(st, nodes);
}

// The step's outputs on their schedules.
Written scheduledoutputs(Storage& st, NodeArrays& nodes, double told, RoutineTimers& t) {
    Written done;
    if (crossed(st.time, told, st.otime)) {
        t.time("case-file output", [&] { resultsoutput(st, nodes); });
        done.results = true;
    }
    // On several ranks rank 0 writes these files from the whole box gathered.
    if (st.hotout == 1 && crossed(st.time, told, st.dthotout)) {
        t.time("restart output", [&] { restartoutput(st); });
        done.restart = true;
    }
    if (st.tecplot == 1 && crossed(st.time, told, st.dttecplot)) {
        t.time("tecplot output", [&] {
            pressure::vorticity(st.geometry(), st.conditions(), st.flow());
            const Storage* from = filesource(st, Part::flow);
            if (from) tecplotflow(*from, st.outpath, st.outfile, trunc32(st.time / st.dttecplot));
        });
    }
    return done;
}

// Asked by a signal: the restart file and the results of this time, unless the schedule wrote
// them at this step already. One line says so.
void writeonrequest(Storage& st, NodeArrays& nodes, const Written& done, const std::string& why) {
    if (!done.restart) restartoutput(st);
    if (!done.results) resultsoutput(st, nodes);
    if (myrank() != 0) return;
    console::clearprogress();
    console::writeline(why + " at step " + std::to_string(st.istep) + ", time " +
                       console::shorttext(st.time) + ": restart file " +
                       outputname(st.outpath, st.outfile, ".dat") +
                       " and the results of this time written");
    std::fflush(stdout);
}

// Refuses, before the case file is opened for writing, a case whose outputs or restart file
// the run would meet only later: the output folder and the restart file of a hot start.
void checkfiles(const CaseInput& input) {
    const std::vector<std::string> outputs = outputproblems(input);
    if (!outputs.empty()) errorreport(1, outputs.front());
    int hotstart = 0, exponent = 0, rc = 0;
    std::string startfile;
    pf::CG_KAVEL_READ_INTEGER_F("HotstartItm", hotstart, rc);
    if (hotstart != 1) return;
    pf::CG_KAVEL_READ_STRING_F("StartfileItm", startfile, rc);
    pf::CG_KAVEL_READ_INTEGER_F("kmaxItm", exponent, rc);
    if (const std::string problem = restartfileproblem(startfile); !problem.empty())
        errorreport(3, problem);
    // A restart file that cannot serve this grid is refused now too, while the results of the
    // last run are still in the case file.
    restartcheck(input.ni - 1, input.nj - 1, kmaxfromexponent(exponent), startfile);
}

} // namespace

int riffle(int argc, const char* const* argv, RoutineTimers* timers) {
    if (argc != 2) stopwith(messages::no_input_file);
    // The smoother's order may be chosen from the environment; a wrong name stops the run before
    // the case file is opened.
    LineOrder lineorder = LineOrder::rows;
    if (const char* chosen = std::getenv("RIFFLE_SMOOTHER");
        chosen != nullptr && !pressure::lineorderof(chosen, lineorder)) {
        stopwith((std::string(messages::error_smoother) + '"' + chosen + '"').c_str());
    }
    std::string casename(argv[1]);
    if (casename.size() > textlength) casename.resize(textlength);

    // The case is first read without write access and refused, with the file untouched, when it
    // cannot be computed (infinities, NaN, or a run that never ends) or its files are not there.
    // On several ranks rank 0 alone opens the case file; the others wait for what it reads.
    const bool root = myrank() == 0;
    int fid = 0, ier = 0;
    if (root) {
        pf::CG_OPEN_F(casename, pf::mode_read, fid, ier);
        if (ier != 0) stopwith(messages::open_error);
        pf::CG_KAVEL_INIT_F(fid, ier);
        const CaseInput input = readcaseinput();
        const std::vector<std::string> problems = caseproblems(input);
        if (!problems.empty()) {
            pf::CG_CLOSE_F(fid, ier);
            errorreport(1, problems.front());
        }
        checkfiles(input);
        pf::CG_CLOSE_F(fid, ier);

        pf::CG_OPEN_F(casename, pf::mode_modify, fid, ier);
        if (ier != 0) stopwith(messages::open_error);
        pf::CG_KAVEL_INIT_F(fid, ier);
    }

    Storage st;
    st.casename = casename;
    st.lineorder = lineorder;
    NodeArrays nodes;
    RoutineTimers none(false);
    RoutineTimers& t = timers ? *timers : none;
    int status = EXIT_SUCCESS;
    // A file that cannot be written ends the run with a one-line message; the case file keeps
    // every output committed before.
    try {
        startup(st, nodes);
        // The whole box's cells, also on several ranks: the time per cell is that of the run.
        t.cells = st.dec.distributed()
                      ? static_cast<long long>(st.dec.imaxg) * st.dec.jmaxg * st.kmax
                      : static_cast<long long>(st.imax) * st.jmax * st.kmax;
        guard::catchsignals();
        console::ProgressLine progress(st.time, st.endtime);
        double told = st.time;
        for (;;) {
            advance(st, &t);
            ++t.steps;
            // A flow that is no longer finite ends the run before this step's outputs.
            if (!guard::finite(st)) {
                const std::string report = guard::nonfinitereport(st);
                if (root) printerror(report.c_str());
                status = EXIT_FAILURE;
                break;
            }
            if (st.stats.enabled == 1) t.time("statistics", [&] { addsample(st, nodes); });
            if (root) progress.beforereport();
            stepreport(st);
            if (root) progress.afterreport(st.istep, st.time);
            const Written done = scheduledoutputs(st, nodes, told, t);
            const guard::Request request = guard::takerequest(st);
            if (request.stop != 0) {
                writeonrequest(st, nodes, done, "Stopped by " + guard::signalname(request.stop));
                status = guard::stopped_status;
                break;
            }
            if (request.write) writeonrequest(st, nodes, done, guard::signalname(SIGUSR1));
            told = st.time;
            if (st.endtime <= st.time) break;
        }
    } catch (const std::runtime_error& e) {
        abandonwith(e.what());
    }
    guard::releasesignals();
    if (root) pf::CG_CLOSE_F(fid, ier);
    for (std::size_t n = 0; n < 4; ++n) {
        const ibm::PointList& l = n < 3 ? st.forcing.velocity[n] : st.forcing.eddy;
        t.forcingpoints[n] =
            static_cast<long long>(l.trilinear.size() + l.idw.size() + l.eddy.size());
    }
    t.listbytes = static_cast<long long>(ibm::listbytes(st.forcing));
    return status;
}

} // namespace riffle
