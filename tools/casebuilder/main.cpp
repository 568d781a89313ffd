// riffle-case: writes a case file from a recipe, or checks one. See docs/case-builder.md.
// Exit status: 0 success; 1 a recipe error, an unreadable or incomplete case; 2 a wrong command
// line.
#include <cmath>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "casebuild.hpp"
#include "check.hpp"
#include "messages.hpp"
#include "platform/casejournal.hpp"
#include "recipe.hpp"
#include "run/version_m.hpp"

namespace cb = riffle::casebuilder;
namespace pf = riffle::platform;

namespace {

constexpr int ok = 0, failed = 1, misuse = 2;

int usage() {
    std::cerr << cb::msg::usage << "\n";
    return misuse;
}

int build(const std::string& recipepath, const std::optional<std::string>& output) {
    try {
        cb::Case c = cb::buildcase(cb::readrecipe(recipepath));
        if (output) c.output = *output;
        const cb::Report report = cb::checkcase(cb::asstored(c.conditions), c.bed);
        for (const std::string& w : report.warnings)
            std::cerr << recipepath << ": warning: " << w << "\n";
        // A case the solver would refuse is not written.
        for (const std::string& e : report.errors)
            std::cerr << recipepath << ": error: " << e << "\n";
        if (!report.errors.empty()) return failed;
        if (!c.output.ends_with(".cgns"))
            std::cerr << recipepath << ": warning: " << cb::msg::warn_extension(c.output) << "\n";
        pf::writecasefile(c.output, c.bed, c.conditions);
        std::cout << "wrote " << c.output << ": " << c.bed.ni << " x " << c.bed.nj << " nodes, "
                  << c.conditions.size() << " calculation conditions\n";
        return ok;
    } catch (const cb::RecipeError& e) {
        std::cerr << e.what() << "\n";
    } catch (const pf::CaseFileError& e) {
        std::cerr << "riffle-case: " << e.what() << "\n";
    }
    return failed;
}

int check(const std::string& casepath) {
    std::vector<pf::StoredCondition> stored;
    pf::BedGrid bed;
    bool readall = true;
    try {
        // A run killed in the middle of a write left its journal: finish that write first.
        if (pf::replayjournal(casepath)) std::cout << cb::msg::replayed_journal(casepath) << "\n";
        stored = pf::listconditions(casepath);
    } catch (const pf::CaseFileError& e) {
        std::cerr << "riffle-case: " << e.what() << "\n";
        return failed;
    }
    try {
        bed = pf::readbed(casepath);
    } catch (const pf::CaseFileError& e) { // still worth listing the conditions
        std::cerr << "riffle-case: " << e.what() << "\n";
        readall = false;
    }
    const cb::Report report = cb::checkcase(stored, bed, true);
    std::cout << "Case " << casepath << "\n";
    cb::printreport(std::cout, report);
    return readall && report.problems() == 0 ? ok : failed;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
        std::cout << cb::msg::help;
        return ok;
    }
    if (args.size() == 1 && args[0] == "--version") {
        std::cout << riffle::versiontext("riffle-case");
        return ok;
    }
    if (args.size() == 1 && args[0] == "--list-keys") {
        cb::printkeys(std::cout);
        return ok;
    }
    if (!args.empty() && args[0] == "--check") return args.size() == 2 ? check(args[1]) : usage();

    std::optional<std::string> recipe, output;
    for (std::size_t a = 0; a < args.size(); ++a) {
        if (args[a] == "-o" && a + 1 < args.size() && !output)
            output = args[++a];
        else if (!args[a].starts_with("-") && !recipe)
            recipe = args[a];
        else
            return usage();
    }
    return recipe ? build(*recipe, output) : usage();
}
