#include "bedcsv.hpp"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>

#include "messages.hpp"
#include "recipe.hpp"

namespace riffle::casebuilder {

namespace {

std::vector<std::string> fields(const std::string& row) {
    std::vector<std::string> out;
    const bool commas = row.find(',') != std::string::npos;
    std::string current;
    auto flush = [&](bool keepempty) {
        const auto first = current.find_first_not_of(" \t\r");
        const auto last = current.find_last_not_of(" \t\r");
        std::string f = first == std::string::npos ? "" : current.substr(first, last - first + 1);
        if (keepempty || !f.empty()) out.push_back(f);
        current.clear();
    };
    for (char c : row) {
        if (commas ? c == ',' : (c == ' ' || c == '\t'))
            flush(commas);
        else
            current += c;
    }
    flush(commas);
    return out;
}

// The bucket of offset d along an axis of n buckets of size h, clamped to 0..n-1 before the
// conversion to int: a node far from the survey would overflow an int, and an offset of no
// meaning (NaN, from a survey too wide for a double) goes to bucket 0; the search from any
// bucket still finds the nearest points.
int bucketof(double d, double h, int n) {
    const double b = std::floor(d / h);
    if (!(b >= 0.0)) return 0;
    return b < n - 1 ? static_cast<int>(b) : n - 1;
}

} // namespace

std::optional<std::vector<Point>> readpoints(const std::filesystem::path& file,
                                             const std::string& name) {
    std::ifstream in(file, std::ios::binary);
    std::error_code ec;
    if (!in || std::filesystem::is_directory(file, ec)) return std::nullopt;
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (in.bad()) return std::nullopt;
    return parsepoints(text, name);
}

std::vector<Point> parsepoints(std::string_view text, const std::string& name) {
    std::vector<Point> points;
    bool first = true;
    for (int line = 1; !text.empty(); ++line) {
        const auto eol = text.find('\n');
        const std::string row(text.substr(0, eol));
        text = eol == std::string_view::npos ? std::string_view{} : text.substr(eol + 1);
        std::string content = row.substr(0, row.find('#'));
        if (content.find_first_not_of(" \t\r") == std::string::npos) continue;
        const std::vector<std::string> f = fields(content);
        std::vector<double> numbers;
        for (const std::string& s : f)
            if (auto v = parsevalue(KeyType::real, s)) numbers.push_back(std::get<double>(*v));
        const bool header = first && numbers.empty();
        first = false;
        if (header) continue;
        if (f.size() != 3 || numbers.size() != 3) {
            const auto end = content.find_last_not_of(" \t\r");
            throw RecipeError(located(name, line, msg::bad_bed_row(content.substr(0, end + 1))));
        }
        points.push_back({numbers[0], numbers[1], numbers[2]});
    }
    if (points.empty()) throw RecipeError(located(name, 0, msg::no_bed_points));
    return points;
}

Interpolator::Interpolator(std::vector<Point> points, double hit)
    : points_(std::move(points)), hit_(hit) {
    auto [xlo, xhi] = std::minmax_element(points_.begin(), points_.end(),
                                          [](const Point& a, const Point& b) { return a.x < b.x; });
    auto [ylo, yhi] = std::minmax_element(points_.begin(), points_.end(),
                                          [](const Point& a, const Point& b) { return a.y < b.y; });
    x0_ = xlo->x;
    y0_ = ylo->y;
    x1_ = xhi->x;
    y1_ = yhi->y;
    const double w = x1_ - x0_;
    const double h = y1_ - y0_;
    const double buckets = std::max(1.0, static_cast<double>(points_.size()) / 2.0);
    constexpr double maxside = 4096.0; // keeps a long, thin survey from asking for huge tables
    if (w > 0.0 && h > 0.0) {
        nx_ = static_cast<int>(std::clamp(std::ceil(std::sqrt(buckets * w / h)), 1.0, maxside));
        ny_ = static_cast<int>(std::clamp(std::ceil(buckets / nx_), 1.0, maxside));
    } else if (w > 0.0) {
        nx_ = static_cast<int>(std::min(buckets, maxside));
    } else if (h > 0.0) {
        ny_ = static_cast<int>(std::min(buckets, maxside));
    }
    hx_ = w > 0.0 ? w / nx_ : 1.0;
    hy_ = h > 0.0 ? h / ny_ : 1.0;

    // Counting sort of the points into their buckets.
    auto bucket = [&](const Point& p) {
        const int i = bucketof(p.x - x0_, hx_, nx_);
        const int j = bucketof(p.y - y0_, hy_, ny_);
        return static_cast<std::size_t>(j) * nx_ + i;
    };
    start_.assign(static_cast<std::size_t>(nx_) * ny_ + 1, 0);
    for (const Point& p : points_)
        ++start_[bucket(p) + 1];
    for (std::size_t b = 1; b < start_.size(); ++b)
        start_[b] += start_[b - 1];
    order_.resize(points_.size());
    std::vector<std::size_t> fill(start_.begin(), start_.end() - 1);
    for (std::size_t n = 0; n < points_.size(); ++n)
        order_[fill[bucket(points_[n])]++] = n;
}

std::vector<Interpolator::Near> Interpolator::nearest(double x, double y) const {
    const auto want = std::min<std::size_t>(neighbours, points_.size());
    auto farther = [](const Near& a, const Near& b) { return a.d2 < b.d2; };
    std::vector<Near> heap; // max-heap on d2: the farthest of the best so far on top
    auto visit = [&](int i, int j) {
        const std::size_t b = static_cast<std::size_t>(j) * nx_ + i;
        for (std::size_t m = start_[b]; m < start_[b + 1]; ++m) {
            const Point& p = points_[order_[m]];
            const Near c{(p.x - x) * (p.x - x) + (p.y - y) * (p.y - y), order_[m]};
            if (heap.size() < want) {
                heap.push_back(c);
                std::push_heap(heap.begin(), heap.end(), farther);
            } else if (c.d2 < heap.front().d2) {
                std::pop_heap(heap.begin(), heap.end(), farther);
                heap.back() = c;
                std::push_heap(heap.begin(), heap.end(), farther);
            }
        }
    };
    const int cx = bucketof(x - x0_, hx_, nx_);
    const int cy = bucketof(y - y0_, hy_, ny_);
    for (int r = 0;; ++r) {
        // The buckets of ring r inside the table, row by row and along each row (an order the
        // ties between equally distant points depend on): its first row, the two ends of every
        // row between, its last row. Only those are touched, so a search that runs out to a far
        // bucket of a long, thin table costs the buckets it visits, not the square they span.
        const int ilo = std::max(cx - r, 0), ihi = std::min(cx + r, nx_ - 1);
        auto wholerow = [&](int j) {
            for (int i = ilo; i <= ihi; ++i)
                visit(i, j);
        };
        if (cy - r >= 0) wholerow(cy - r);
        if (cx - r >= 0 || cx + r < nx_) {
            for (int j = std::max(cy - r + 1, 0); j <= std::min(cy + r - 1, ny_ - 1); ++j) {
                if (cx - r >= 0) visit(cx - r, j);
                if (cx + r < nx_) visit(cx + r, j);
            }
        }
        if (r > 0 && cy + r < ny_) wholerow(cy + r);
        // Lower bound of the distance to any bucket outside ring r.
        double bound = std::numeric_limits<double>::infinity();
        if (cx + r + 1 < nx_) bound = std::min(bound, std::max(0.0, x0_ + (cx + r + 1) * hx_ - x));
        if (cx - r - 1 >= 0) bound = std::min(bound, std::max(0.0, x - (x0_ + (cx - r) * hx_)));
        if (cy + r + 1 < ny_) bound = std::min(bound, std::max(0.0, y0_ + (cy + r + 1) * hy_ - y));
        if (cy - r - 1 >= 0) bound = std::min(bound, std::max(0.0, y - (y0_ + (cy - r) * hy_)));
        if (std::isinf(bound)) break; // every bucket visited
        if (heap.size() == want && bound * bound >= heap.front().d2) break;
    }
    std::sort_heap(heap.begin(), heap.end(), farther);
    return heap;
}

double Interpolator::operator()(double x, double y) const {
    const std::vector<Near> near = nearest(x, y);
    if (near.front().d2 <= hit_ * hit_) return points_[near.front().index].z;

    // Weighted least-squares plane in offsets scaled by the farthest neighbour's distance, with
    // weights scaled alike (w >= 1), so the degeneracy test below is free of units.
    const double scale2 = near.back().d2;
    const double scale = std::sqrt(scale2);
    double s = 0, sx = 0, sy = 0, sxx = 0, sxy = 0, syy = 0, sz = 0, sxz = 0, syz = 0;
    double zlo = std::numeric_limits<double>::infinity(), zhi = -zlo;
    for (const Near& n : near) {
        const Point& p = points_[n.index];
        const double w = scale2 / n.d2;
        const double dx = (p.x - x) / scale, dy = (p.y - y) / scale;
        s += w, sx += w * dx, sy += w * dy;
        sxx += w * dx * dx, sxy += w * dx * dy, syy += w * dy * dy;
        sz += w * p.z, sxz += w * dx * p.z, syz += w * dy * p.z;
        zlo = std::min(zlo, p.z), zhi = std::max(zhi, p.z);
    }
    // Cramer's rule for the intercept a of [s sx sy; sx sxx sxy; sy sxy syy] (a b c) = (sz sxz
    // syz).
    const double det =
        s * (sxx * syy - sxy * sxy) - sx * (sx * syy - sxy * sy) + sy * (sx * sxy - sxx * sy);
    constexpr double degenerate = 1e-8; // relative size of det below which the points lie on a line
    double z = sz / s;
    if (near.size() >= 3 && det > degenerate * s * s * s) {
        const double deta = sz * (sxx * syy - sxy * sxy) - sx * (sxz * syy - sxy * syz) +
                            sy * (sxz * sxy - sxx * syz);
        z = deta / det;
    }
    const bool outside = x < x0_ || x > x1_ || y < y0_ || y > y1_;
    return outside ? std::clamp(z, zlo, zhi) : z;
}

} // namespace riffle::casebuilder
