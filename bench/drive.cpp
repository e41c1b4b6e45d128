// drive.cpp: measures morp in each style beside the relays and prints the table. They take turns,
// round by round, so that what disturbs the machine disturbs all of them; a figure is the median
// over the rounds, a ratio the median of the rounds' ratios.
//
// drive [-r rounds] [-s style]... [-m morp] [name...]    with names, only these measurements
#include <sys/utsname.h>
#include <unistd.h>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "figures.h"
#include "session.h"

using namespace bench;

using Rounds = std::vector<double>;
using Contender = std::function<Values()>;

// The yardstick, script, then morp in each style; nothing where it isn't measured.
static std::vector<Contender> contenders(const Measurement &m, const std::vector<Style> &chosen) {
    std::vector<Contender> list = {m.yardstick, m.script};
    for (const Style &style : chosen)
        list.push_back(m.any_style && list.size() > 2 ? Contender()
                                                      : [&] { return m.morp(style); });
    return list;
}

// results[contender][row][round]
using Results = std::vector<std::vector<Rounds>>;

static Results measure(const Measurement &m, const std::vector<Style> &chosen, int rounds) {
    const std::vector<Contender> list = contenders(m, chosen);
    Results results(list.size(), std::vector<Rounds>(m.rows.size()));
    for (int round = 0; round < rounds; round++)
        for (std::size_t c = 0; c < list.size(); c++) {
            const Values values = list[c] ? list[c]() : Values();
            for (std::size_t r = 0; r < values.size(); r++) results[c][r].push_back(values[r]);
        }
    return results;
}

// Not a number without rounds.
static double middle(const Rounds &rounds) { return rounds.empty() ? NAN : median(rounds); }

static double middle_ratio(const Rounds &a, const Rounds &b) {
    Rounds ratios;
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); i++)
        ratios.push_back(b[i] > 0 ? a[i] / b[i] : NAN);
    return middle(ratios);
}

// Empty for what can't be told.
static std::string text(double value) {
    if (std::isnan(value)) return "";
    char buf[32];
    const int digits = value >= 100 || value == std::floor(value) ? 0 : value >= 10 ? 1 : 2;
    (void)snprintf(buf, sizeof buf, "%.*f", digits, value);
    return buf;
}

static std::string text(double value, const Row &row) {
    if (std::isnan(value)) return "";
    return text(value * row.scale) + (row.unit[0] == '\0' ? "" : " ") + row.unit;
}

// One line of the table. Returns the number of styles that miss the bar.
static int print_row(const Row &row, std::size_t r, const Results &results,
                     const std::vector<Style> &chosen) {
    const Rounds &yardstick = results[0][r];
    std::string missed;
    int missing = 0;
    (void)printf("| %s | %s |", row.what, text(middle(yardstick), row).c_str());
    for (std::size_t s = 0; s < chosen.size(); s++) {
        const double value = middle(results[2 + s][r]);
        const double ratio = middle_ratio(results[2 + s][r], yardstick);
        (void)printf(" %s | %s |", text(value, row).c_str(), text(ratio).c_str());
        const double judged = row.judged == Bar::absolute ? value : ratio;
        if (row.judged == Bar::none || std::isnan(judged) || judged <= row.bar) continue;
        missed += (missing++ == 0 ? "" : ", ") + std::string(chosen[s].name);
    }
    std::string verdict = missing == 0 ? "met" : "**missed: " + missed + "**";
    std::string bar = "≤ " + text(row.bar);
    if (row.judged == Bar::none) verdict = bar = "";
    (void)printf(" %s | %s | %s |\n", bar.c_str(), verdict.c_str(),
                 text(middle_ratio(results[1][r], yardstick)).c_str());
    (void)fflush(stdout);
    return missing;
}

static std::string processor_name() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);)
        if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
    return "unknown processor";
}

static void print_head(int rounds, const std::vector<Style> &chosen) {
    struct utsname system = {};
    (void)uname(&system);
    char date[32] = "";
    const time_t seconds = time(nullptr);
    (void)strftime(date, sizeof date, "%Y-%m-%d", gmtime(&seconds));
    (void)printf("%s, %ld processors, %s %s %s; %s; medians of %d rounds.\n\n",
                 processor_name().c_str(), sysconf(_SC_NPROCESSORS_ONLN), system.sysname,
                 system.release, system.machine, date, rounds);
    (void)printf("| figure | beside |");
    for (const Style &style : chosen) (void)printf(" %s | ratio |", style.name);
    (void)printf(" bar | | script's ratio |\n|---|---:|");
    for (std::size_t s = 0; s < chosen.size(); s++) (void)printf("---:|---:|");
    (void)printf("---:|---|---:|\n");
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

static bool among(const std::vector<std::string> &wanted, const char *name) {
    return std::find(wanted.begin(), wanted.end(), name) != wanted.end();
}

int main(int argc, char **argv) {
    int rounds = 7;
    Setting setting = {MORP_BINARY, beside_me("relay"), beside_me("load"), folder()};
    std::vector<std::string> asked;
    (void)atexit(remove_folder);
    for (int option; (option = getopt(argc, argv, "r:s:m:")) != -1;) {
        if (option == 'r') rounds = std::max(atoi(optarg), 1);
        if (option == 's') asked.emplace_back(optarg);
        if (option == 'm') setting.morp = optarg;
        if (option == '?') fail("usage: drive [-r rounds] [-s style]... [-m morp] [name...]");
    }
    std::vector<Style> chosen;
    for (const Style &style : styles())
        if (asked.empty() || among(asked, style.name)) chosen.push_back(style);
    if (chosen.empty()) fail("no such style");
    const std::vector<std::string> wanted(argv + optind, argv + argc);
    print_head(rounds, chosen);
    int missed = 0;
    for (const Measurement &m : measurements(setting)) {
        if (!wanted.empty() && !among(wanted, m.name)) continue;
        const Results results = measure(m, chosen, rounds);
        for (std::size_t r = 0; r < m.rows.size(); r++)
            missed += print_row(m.rows[r], r, results, chosen);
    }
    return missed == 0 ? 0 : 2;
}
