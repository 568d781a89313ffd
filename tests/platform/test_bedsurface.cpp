// The bed's surface as raw CGNS calls see it (its layout over a whole run is checked with h5py
// in tests/e2e/test_bedstress.py): a third base /Bed of 2-D cells in 3-D space, the calls refused
// out of order, each time's field in that time's solution, a base of that name laid out
// otherwise left alone, and the same base in a results file.
#include "support/case_kavel.hpp"

namespace riffle::platform {
namespace {

using namespace testsupport;

// Base B of `file`: its name, cell and physical dimensions, zones, and (if it has a zone) the
// solutions of zone 1 and field `field` of its last solution.
struct Base {
    std::string name;
    int cdim = 0, pdim = 0, zones = 0, sols = 0;
    std::vector<double> last;
};
Base readbase(const std::string& file, int B, const char* field) {
    Base b;
    int fn = 0;
    char name[33] = {};
    cgsize_t lo[2] = {1, 1}, hi[2] = {ni, nj};
    EXPECT_EQ(cg_open(file.c_str(), CG_MODE_READ, &fn), CG_OK);
    cg_base_read(fn, B, name, &b.cdim, &b.pdim);
    b.name = name;
    cg_nzones(fn, B, &b.zones);
    if (b.zones > 0 && cg_nsols(fn, B, 1, &b.sols) == CG_OK && b.sols > 0) {
        b.last.resize(ni * nj);
        EXPECT_EQ(cg_field_read(fn, B, 1, b.sols, field, RealDouble, lo, hi, b.last.data()), CG_OK);
    }
    cg_close(fn);
    return b;
}

TEST_F(Kavel, BedSurfaceRefusedOutOfOrderAndFollowsTheTimes) {
    const int fid = openselect(), n = ni * nj * 2;
    std::vector<double> xyz(n, 0.0), f(ni * nj, 0.0);
    const double *x = bed.x.data(), *y = bed.y.data(), *z = bed.elevation.data();
    int ier = 1, refused = 0;
    CG_KAVEL_WRITEBEDSURFACE_F(ni, nj, x, y, z, ier); // no box yet
    refused += ier;
    CG_KAVEL_WRITEGRIDCOORD3D_F(ni, nj, 2, xyz.data(), xyz.data(), xyz.data(), ier);
    CG_KAVEL_WRITEBEDSURFACE_F(ni, nj - 1, x, y, z, ier); // not under the box's columns
    refused += ier;
    CG_KAVEL_WRITEBEDSURFACE_F(ni, nj, x, y, z, ier);
    EXPECT_EQ(ier, 0);
    CG_KAVEL_WRITE_BED_SOL_REAL_F("BedShearStress", f.data(), ier); // no time yet
    refused += ier;
    for (int step = 1; step <= 2; ++step) {
        writestep(0.5 * step, n, step);
        for (int p = 0; p < ni * nj; ++p)
            f[p] = -nodevalue(p, step);
        CG_KAVEL_WRITE_BED_SOL_REAL_F("BedShearStress", f.data(), ier);
        EXPECT_EQ(ier, 0);
    }
    CG_KAVEL_WRITEBEDSURFACE_F(ni, nj, x, y, z, ier); // too late for a solution at every time
    refused += ier;
    CG_CLOSE_F(fid, ier);
    EXPECT_EQ(refused, 4);
    const Base b = readbase(file, 3, "BedShearStress");
    EXPECT_EQ(std::tuple(b.name, b.cdim, b.pdim, b.zones, b.sols, b.last),
              std::tuple("Bed", 2, 3, 1, 2, f));
}

TEST_F(Kavel, AnotherProgramsBaseOfTheNameIsLeftAlone) {
    int fn = 0, B = 0, ier = 1;
    CGOK(cg_open(file.c_str(), CG_MODE_MODIFY, &fn));
    CGOK(cg_base_write(fn, "Bed", 3, 3, &B));
    CGOK(cg_close(fn));
    const int fid = openselect();
    std::vector<double> zero(ni * nj, 0.0);
    CG_KAVEL_WRITEGRIDCOORD3D_F(ni, nj, 1, zero.data(), zero.data(), zero.data(), ier);
    EXPECT_EQ(ier, 0); // the grid write passes it over
    CG_KAVEL_WRITEBEDSURFACE_F(ni, nj, zero.data(), zero.data(), zero.data(), ier);
    EXPECT_NE(ier, 0);
    writestep(0.5, ni * nj, 1); // and so does a time
    CG_CLOSE_F(fid, ier);
    const Base b = readbase(file, 3, "");
    EXPECT_EQ(std::tuple(b.name, b.cdim, b.pdim, b.zones), std::tuple("Bed", 3, 3, 0));
}

TEST_F(Kavel, ResultsFileHoldsTheSurfaceAsACaseDoes) {
    std::vector<double> z(ni * nj * 2, 0.0), mean(ni * nj);
    for (int p = 0; p < ni * nj; ++p)
        mean[p] = 0.25 * p;
    const std::string out = scratch.file("results.cgns").string();
    BedSurface surface{ni,
                       nj,
                       bed.x.data(),
                       bed.y.data(),
                       bed.elevation.data(),
                       {{"MeanBedShearStress", mean.data()}}};
    writeresultsfile(out, ni, nj, 2, z.data(), z.data(), z.data(), 2.5, {}, "Notes", {}, &surface);
    const Base b = readbase(out, 2, "MeanBedShearStress");
    EXPECT_EQ(std::tuple(b.name, b.cdim, b.pdim, b.zones, b.sols, b.last),
              std::tuple("Bed", 2, 3, 1, 1, mean));
    surface.nj = nj - 1; // not the box's columns: refused, and the last file stays
    EXPECT_THROW(writeresultsfile(out, ni, nj, 2, z.data(), z.data(), z.data(), 3.0, {}, "Notes",
                                  {}, &surface),
                 CaseFileError);
    EXPECT_EQ(readbase(out, 2, "MeanBedShearStress").last, mean);
}

} // namespace
} // namespace riffle::platform
