// history_bench.cpp: indexing, opening and searching a history of a million commands, recording.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>

#include "history.h"
#include "history_file.h"
#include "morp_defs.h"

static constexpr int kCommands = 1'000'000;
static constexpr char kText[] = "grep -n pattern src/file.cpp";

// The file under measurement, there until the program ends.
class BigFile {
public:
    BigFile() {
        const int fd = mkstemp(name_);
        if (fd < 0) std::abort();
        close(fd);
        bench::write_history(name_, kCommands, kText, kText);
    }
    ~BigFile() { unlink(name_); }
    BigFile(const BigFile &) = delete;
    BigFile &operator=(const BigFile &) = delete;
    const char *name() const { return name_; }

private:
    char name_[32] = "/tmp/morp-bench-XXXXXX";
};

static const char *big_file() {
    static const BigFile file;
    return file.name();
}

static void open_history(const char *size) {
    setenv("Q_VXHISTFILE", big_file(), 1);
    setenv("Q_VXHISTSIZE", size, 1);
    if (hist_open() != 0) std::abort();
}

static void open_big(benchmark::State &state, const char *size) {
    for ([[maybe_unused]] const auto _ : state) {
        open_history(size);
        hist_close_for_test();
    }
}
BENCHMARK_CAPTURE(open_big, last_128, "128")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(open_big, all, "1000000")->Unit(benchmark::kMillisecond);

// Through all commands, the text found nowhere.
static void search_big(benchmark::State &state, const char *text, int anywhere, int direction) {
    open_history("1000000");
    const int from = direction < 0 ? fc_fix->fixind : 1;
    for ([[maybe_unused]] const auto _ : state)
        benchmark::DoNotOptimize(hist_find(text, from, anywhere, direction));
    hist_close_for_test();
}
BENCHMARK_CAPTURE(search_big, older, "nowhere to be found", 1, -1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search_big, newer, "nowhere to be found", 1, 1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search_big, two_letters, "zz", 1, -1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search_big, nearly, "grep -n patterns", 1, -1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search_big, at_the_start, "ls", 0, -1)->Unit(benchmark::kMillisecond);

// What a key of a search that follows its text costs, letters in either case: all commands have the
// text, the oldest alone, none.
static void search_key(benchmark::State &state, const char *text) {
    (void)setlocale(LC_CTYPE, "C.UTF-8");
    hist_begin(true);
    search_big(state, text, 1, -1);
    hist_begin(false);
}
BENCHMARK_CAPTURE(search_key, common, "grep")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(search_key, rare, "pattern7 src")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search_key, none, "nowhere")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search_key, one_letter, "z")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search_key, two_letters, "nz")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search_key, nearly, "grep -n patterns")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search_key, capital, "Grep")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search_key, beyond_ascii, "привет")->Unit(benchmark::kMillisecond);

static void search_newest(benchmark::State &state) {
    open_history("1000000");
    for ([[maybe_unused]] const auto _ : state)
        benchmark::DoNotOptimize(hist_find("pattern", fc_fix->fixind, 1, -1));
    hist_close_for_test();
}
BENCHMARK(search_newest)->Unit(benchmark::kMicrosecond);

static void locate_far(benchmark::State &state) {
    open_history("1000000");
    for ([[maybe_unused]] const auto _ : state)
        benchmark::DoNotOptimize(hist_locate(fc_fix->fixind, 0, -kMaxCount));
    hist_close_for_test();
}
BENCHMARK(locate_far)->Unit(benchmark::kMillisecond);

static void record_line(benchmark::State &state) {
    setenv("Q_VXHISTFILE", "", 1);
    setenv("Q_VXHISTSIZE", "128", 1);
    if (hist_open() != 0) std::abort();
    for ([[maybe_unused]] const auto _ : state) hist_record(kText, sizeof kText - 1);
    hist_close_for_test();
}
BENCHMARK(record_line);
