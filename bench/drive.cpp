// drive.cpp: measures morp beside the relays and prints the table. Contenders take turns, round by
// round, so that what disturbs the machine disturbs all of them; a figure is the median over the
// rounds, a ratio the median of the rounds' ratios.
//
// drive [-r rounds] [-m morp] [name...]    with names, only these measurements
#include <sys/utsname.h>
#include <unistd.h>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "figures.h"
#include "session.h"

using namespace bench;

// values[contender][row][round]
using Results = std::vector<std::vector<std::vector<double>>>;

static Results measure(const Measurement &m, int rounds) {
    Results results(m.contenders.size(), std::vector<std::vector<double>>(m.rows.size()));
    for (int round = 0; round < rounds; round++)
        for (std::size_t c = 0; c < m.contenders.size(); c++) {
            const std::vector<double> values = m.contenders[c].run();
            for (std::size_t r = 0; r < m.rows.size(); r++) results[c][r].push_back(values[r]);
        }
    return results;
}

static double median_ratio(const std::vector<double> &a, const std::vector<double> &b) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < a.size(); i++) ratios.push_back(b[i] > 0 ? a[i] / b[i] : NAN);
    return median(ratios);
}

static std::string text(double value) {
    char buf[32];
    const int digits = value >= 100 || value == std::floor(value) ? 0 : value >= 10 ? 1 : 2;
    (void)snprintf(buf, sizeof buf, "%.*f", digits, value);
    return buf;
}

static std::string text(double value, const Row &row) {
    std::string out = text(value * row.scale);
    if (row.unit[0] != '\0') out += std::string(" ") + row.unit;
    return out;
}

// One line of the table. False when the bar is missed.
static bool print_row(const Measurement &m, std::size_t r, const Results &results) {
    const Row &row = m.rows[r];
    const double own = median(results[0][r]);
    const double ratio = median_ratio(results[0][r], results[1][r]);
    const double judged = row.judged == Bar::absolute ? own : ratio;
    const bool met = row.judged == Bar::none || judged <= row.bar;
    std::string third;
    if (results.size() > 2) third = text(median_ratio(results[2][r], results[1][r]));
    const std::string bar = row.judged == Bar::none ? "" : "≤ " + text(row.bar);
    (void)printf("| %s | %s | %s | %s | %s | %s | %s |\n", row.what, text(own, row).c_str(),
                 text(median(results[1][r]), row).c_str(),
                 std::isnan(ratio) ? "" : text(ratio).c_str(), bar.c_str(),
                 row.judged == Bar::none ? ""
                 : met                   ? "met"
                                         : "**missed**",
                 third.c_str());
    (void)fflush(stdout);
    return met;
}

static std::string processor_name() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);)
        if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
    return "unknown processor";
}

static void print_head(int rounds) {
    struct utsname system = {};
    (void)uname(&system);
    char date[32] = "";
    const time_t seconds = time(nullptr);
    (void)strftime(date, sizeof date, "%Y-%m-%d", gmtime(&seconds));
    (void)printf("%s, %ld processors, %s %s %s; %s; medians of %d rounds.\n\n",
                 processor_name().c_str(), sysconf(_SC_NPROCESSORS_ONLN), system.sysname,
                 system.release, system.machine, date, rounds);
    (void)printf("| figure | morp | beside | ratio | bar | | script's ratio |\n");
    (void)printf("|---|---:|---:|---:|---:|---|---:|\n");
}

static std::string beside_me(const char *name) {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}

// A folder for home and history, gone at the end.
static const std::string &folder() {
    static const std::string path = [] {
        char name[] = "/tmp/morp-bench-XXXXXX";
        if (mkdtemp(name) == nullptr) fail("no folder in /tmp");
        return std::string(name);
    }();
    return path;
}

static void remove_folder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder(), ignored);
}

int main(int argc, char **argv) {
    int rounds = 7;
    Setting setting = {MORP_BINARY, beside_me("relay"), beside_me("load"), folder()};
    (void)atexit(remove_folder);
    for (int option; (option = getopt(argc, argv, "r:m:")) != -1;) {
        if (option == 'r') rounds = std::max(atoi(optarg), 1);
        if (option == 'm') setting.morp = optarg;
        if (option == '?') fail("usage: drive [-r rounds] [-m morp] [name...]");
    }
    const std::vector<std::string> wanted(argv + optind, argv + argc);
    print_head(rounds);
    int missed = 0;
    for (const Measurement &m : measurements(setting)) {
        if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), m.name) == wanted.end())
            continue;
        const Results results = measure(m, rounds);
        for (std::size_t r = 0; r < m.rows.size(); r++) missed += print_row(m, r, results) ? 0 : 1;
    }
    return missed == 0 ? 0 : 2;
}
