// complete_bench.cpp: what the output pays for being kept, and how long a TAB takes in the worst
// cases: a folder of 200,000 names, words by the megabyte, a history of a million commands.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "edit.h"
#include "edit/chars.h"
#include "edit/complete.h"
#include "edit/host.h"
#include "edit/seen.h"
#include "edit/text.h"
#include "history.h"
#include "history_file.h"

// A packet of output, as the system hands it over.
static void keep_output(benchmark::State &state) {
    const std::string packet(static_cast<std::size_t>(state.range(0)), 'x');
    seen_begin(true);
    for ([[maybe_unused]] const auto _ : state)
        seen_take(packet.data(), static_cast<int>(packet.size()));
    state.SetBytesProcessed(state.iterations() * state.range(0));
    seen_begin(false);
}
BENCHMARK(keep_output)->Arg(64)->Arg(4095);

// A folder that goes with the process, with what its cases need.
class Folder {
public:
    Folder() {
        char name[] = "/tmp/morp-bench-XXXXXX";
        name_ = mkdtemp(name);
        std::filesystem::current_path(name_);
        std::filesystem::create_directory("names");
        for (int i = 0; i < 200'000; i++) {
            const std::string file =
                "names/a-name-like-others-" + std::to_string(i * 7919L % 200'000);
            close(open(file.c_str(), O_WRONLY | O_CREAT, 0600));
        }
        std::ofstream words("words");
        for (int i = 0; i < 500'000; i++) words << "word" << i * 7919L % 500'000 << '\n';
        bench::write_history("history", 1'000'000, "grep -n pattern src/file.cpp", "ls");
    }
    ~Folder() {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(name_);
    }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;

private:
    std::string name_;
};

static void press_tab(benchmark::State &state, const char *line) {
    static const Folder folder;
    static constexpr EditHost kHost = {nullptr, nullptr};
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("Q_VXHISTFILE", "history", 1);
    setenv("Q_VXHISTSIZE", "1000000", 1);
    setenv("Q_VXWORDS", line[2] == 'w' ? "words" : "", 1);
    chars_begin(true);
    edit_reset_for_test();
    e_host = &kHost;
    complete_begin(true);
    hist_open();
    text_begin(kLineUnits, kLineUnits);
    std::string output;
    while (output.size() < 256UL * 1024) output += "a word of output, ";
    seen_take(output.data(), static_cast<int>(output.size()));
    genchar units[64];
    const int n = units_from_bytes(units, 64, line, static_cast<int>(std::string(line).size()));
    (void)text_set(units, n);
    for ([[maybe_unused]] const auto _ : state) benchmark::DoNotOptimize(complete_at(n, 100));
    hist_close_for_test();
    chars_begin(false);
}
BENCHMARK_CAPTURE(press_tab, names, "x names/a")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(press_tab, no_name, "x names/b")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(press_tab, listed_words, "x word")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(press_tab, used_words, "x patt")->Unit(benchmark::kMillisecond);
