// soak: uses morp for as long as it is told to, with random but realistic keys, and stops at the
// first thing that is not as it should be. script/soak builds and runs it.
//
// usage: soak minutes|programs|valgrind|lines N [SEED]
//
// Real programs, for N minutes or N of them, also under memcheck, which judges errors and leaks at
// the end of each; or in each style N lines without pause, memory watched.
//
// Programs, actions and ends are rows of tests/cases/soak.txt, in the steps of harness/script.h and
// some more:
//
//     type KEYS       sometimes in pieces; "add KEYS" leaves alone from where `output` looks
//     enter LINE      types it in some way, ends it and expects it in the history
//     typed LINE      expects it there; "perhaps LINE": a line sent just before a kill may be there
//     stands          $line stands behind the prompt, the cursor behind it; "at TEXT": TEXT alone
//     answer          $answer and the next prompt stand below $line
//     rest            the program waits for a line, nothing is typed, no descriptor is left over
//     reading         the program sleeps
//     maybe STEP      every other time
//     ahead, wild     several lines in one go, and their answers; keys without a plan
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>

#include "harness/process.h"
#include "harness/script.h"

namespace fs = std::filesystem;
using harness::Case;
using harness::escaped;
using harness::Fields;
using harness::rest;
using harness::unescaped;
using harness::visible;

namespace soak {
namespace {

constexpr int kColumns = 80;  // as morp is told; the window is never narrower
struct Style {
    const char *name;
    bool extended;
};
constexpr Style kStyles[] = {
    {"emacs", false}, {"vi", true}, {"gmacs", false}, {"emacs", true}, {"vi", false}};
constexpr const char *kMemcheck = "valgrind --leak-check=full --error-exitcode=99 --log-file=";

using Random = std::mt19937_64;
using Lines = std::vector<std::string>;

[[noreturn]] void fault(const std::string &what) { throw std::runtime_error(what); }

std::string trimmed(std::string text, const char *blanks = " ") {
    text.erase(text.find_last_not_of(blanks) + 1);
    return text;
}

Lines split(const std::string &text) {
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// The rows of a table of soak.txt.
const std::vector<Case> &rows_of(const std::string &table) {
    static std::map<std::string, std::vector<Case>> tables;
    if (tables.empty())
        for (const auto &section : harness::sections_of("soak.txt"))
            tables[section.name] = section.cases();
    return tables.at(table);
}

// Printable characters and nothing else.
bool simple(const std::string &text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

// Whether `at` is inside a character of several bytes.
bool inside(const std::string &text, std::size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80;
}

long resident_kib(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/statm");
    long total = 0, pages = -1;
    in >> total >> pages;
    return pages * (getpagesize() / 1024);
}

long descriptors(pid_t pid) {
    return std::distance(fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd"), {});
}

// All that lasts for the soak, and the run of a program that it is in.
struct Soak {
    explicit Soak(unsigned long long seed) : random(seed) {
        if (mkdtemp(dir.data()) == nullptr) fault("mkdtemp");
    }
    ~Soak() { fs::remove_all(dir); }
    Soak(const Soak &) = delete;
    Soak &operator=(const Soak &) = delete;

    Random random;
    std::string dir = "/tmp/morp-soak-XXXXXX";  // history files
    std::map<std::string, Lines> files;         // for each of them, what has to be in it
    Lines log;                                  // actions and keys
    std::size_t steps = 0, lines = 0, visits = 0;
    long rss = 0, open = 0;  // when it was last at rest
    bool valgrind = false;

    Fields program;
    std::string prompt, file;
    bool vi = false, extended = false;
    Lines *recorded = nullptr;  // all that has to be in the history
    std::string perhaps;        // may be in the history
    std::string line, answer;   // of the running action
    std::unique_ptr<harness::Script> s;

    // 0 to n - 1; 0 as well when n is 0.
    std::size_t roll(std::size_t n) { return n == 0 ? 0 : static_cast<std::size_t>(random() % n); }
    bool half() { return roll(2) == 0; }
    template <typename T>
    const T &any_of(const std::vector<T> &list) {
        return list[roll(list.size())];
    }
    std::string some_letters(std::size_t most) {
        std::string text(1 + roll(most), ' ');
        for (char &c : text) c = static_cast<char>('a' + roll(26));
        return text;
    }

    void note(const std::string &what) { log.push_back(what); }
    void print_figures() const {
        std::printf("%zu lines, %zu programs, %ld KiB, %ld descriptors\n", lines, visits, rss,
                    open);
        (void)std::fflush(stdout);
    }

    // What the program is able to, and what is installed.
    bool can(const std::string &needs) {
        const auto traits = harness::words_of(harness::get(program, "can"));
        const auto wanted = harness::words_of(needs);
        return std::all_of(wanted.begin(), wanted.end(), [&](const std::string &need) {
            return std::find(traits.begin(), traits.end(), need) != traits.end() ||
                   fs::exists("/usr/bin/" + need);
        });
    }

    // A row of those that this program can do, each as likely as its weight says.
    const Case &choose(const std::string &table) {
        std::vector<const Case *> choice;
        for (const Case &row : rows_of(table))
            if (can(harness::get(row.fields, "needs")))
                choice.insert(choice.end(), std::stoul(harness::get(row.fields, "weight", "1")),
                              &row);
        return *any_of(choice);
    }

    using In = std::istream;
    const harness::Verbs verbs = {
        {"type", [this](In &in) { s->from = s->mark(), send(rest(in)); }},
        {"add", [this](In &in) { send(rest(in)); }},
        {"enter", [this](In &in) { enter(rest(in)); }},
        {"typed", [this](In &in) { typed(rest(in)); }},
        {"perhaps", [this](In &in) { perhaps = rest(in); }},
        {"at", [this](In &in) { at(rest(in)); }},
        {"stands", [this](In &) { stands(line); }},
        {"answer", [this](In &) { answered(); }},
        {"rest", [this](In &) { at_rest(); }},
        {"reading", [this](In &) { reading(); }},
        {"maybe", [this](In &in) { half() ? take(rest(in), {}) : void(); }},
        {"ahead", [this](In &) { ahead(); }},
        {"wild", [this](In &) { wild(); }}};

    // --- What is typed ---

    std::string new_text() {
        const std::string &kind = program.at("texts");
        if (kind == "number") return std::to_string(1 + random() / 2);
        std::string words = some_letters(9);
        const std::size_t wanted = roll(kind == "bytes" && roll(10) == 0 ? 190 : 45);
        while (words.size() + 12 < wanted) words += " .,:-+_"[roll(7)] + some_letters(9);
        if (kind == "bytes" && (!vi || extended) && roll(8) == 0)
            words.insert(roll(words.size()),
                         any_of(Lines{extended ? "\xf0\x9f\x91\x8d" : "\t", "\xc3\xa4",
                                      "\xe6\xbc\xa2", "\xff", "~"}));
        return words;
    }

    std::string about(const std::string &text, const std::string &column) const {
        return unescaped(harness::filled(program.at(column), {{"text", escaped(text)}}));
    }

    // What the names in an action's steps stand for.
    Fields new_names() {
        const std::string text = new_text();
        line = about(text, "line");
        answer = about(text, "answer");
        Fields names = parts(line);
        names.merge(Fields{
            {"text", escaped(text)},
            {"answer", escaped(answer)},
            {"word", some_letters(20)},
            {"escape", vi && half() ? "\\e" : ""},
            {"window", std::to_string(12 + roll(40)) + " " + std::to_string(kColumns + roll(60))},
            {"next", can("prompt") ? "output \\n" + program.at("prompt") : "asleep"}});
        names.merge(Fields(program));
        return names;
    }

    // What a line is typed from.
    Fields parts(const std::string &text) {
        std::size_t cut = 1 + roll(text.size());
        while (inside(text, cut)) ++cut;
        return {{"line", escaped(text)},
                {"begun", escaped(text.substr(0, cut))},
                {"rest", escaped(text.substr(cut))},
                {"wrong", escaped(with_mistakes(text))},
                {"junk", some_letters(20)},
                {"digit", std::to_string(roll(10))}};
    }

    std::string with_mistakes(const std::string &text) {
        std::string keys;
        for (std::size_t at = 0; at < text.size(); ++at) {
            const std::string wrong = roll(8) == 0 && !inside(text, at) ? some_letters(8) : "";
            keys += wrong + std::string(wrong.size(), '\x7f') + text[at];
        }
        return keys;
    }

    // Keys that leave exactly `text` in an edit that was empty, the cursor at its end.
    std::string keys_for(const std::string &text) {
        if (!simple(text) && !extended) return text;
        return unescaped(
            harness::filled(any_of(rows_of(vi ? "Vi" : "Emacs")).fields.at("keys"), parts(text)));
    }

    void send(const std::string &keys) {
        note("  keys " + visible(keys));
        const bool pieces = roll(4) == 0;
        for (std::size_t at = 0, n = 0; at < keys.size(); at += n) {
            n = pieces ? 1 + roll(4) : keys.size();
            s->type(std::string_view(keys).substr(at, n));
        }
    }

    void typed(const std::string &text) {
        ++lines;
        const std::string kept_part = trimmed(text, " \t\n\v\f\r");
        const bool again = extended && !recorded->empty() && recorded->back() == kept_part;
        if (!kept_part.empty() && !again) recorded->push_back(kept_part);
    }

    void enter(const std::string &text) {
        send(keys_for(text));
        stands(text);
        s->from = s->mark();
        send("\r");
        typed(text);
    }

    // Both terminals put a carriage return in front of a newline; an editor draws no such end.
    void printed(const std::string &text) {
        s->wait_output(text + "\r\r\n", s->from);
        s->from = s->output().find(text + "\r\r\n", s->from) + text.size();
    }

    // Pasted, or typed while the program is busy.
    void ahead() {
        const bool paste = half();
        s->from = s->mark();
        Lines answers;
        std::string keys;
        for (std::size_t n = 2 + roll(paste ? 20 : 4); n > 0; --n) {
            new_names();
            keys += (paste ? line : keys_for(line)) + "\r";
            typed(line);
            answers.push_back(answer);
        }
        send(keys);
        for (const std::string &next : answers) printed(next);
        at_rest();
    }

    void wild() {
        const std::size_t before = split(s->file("got")).size();
        const auto keys_of = [](std::size_t row) {
            return harness::words_of(rows_of("WildKeys")[row].fields.at("keys"));
        };
        Lines all = keys_of(vi ? 1 : 0);
        const Lines more = extended ? keys_of(2) : Lines{};
        all.insert(all.end(), more.begin(), more.end());
        for (std::size_t n = 1 + roll(25); n > 0; --n) send(unescaped(any_of(all)));
        do {
            send("\r");
            s->wait_asleep();
        } while (s->row(s->cursor().row) != trimmed(prompt));
        const Lines got = split(s->file("got"));
        for (std::size_t n = before; n < got.size(); ++n) typed(got[n]);
        at_rest();
        check_recorded();
    }

    // --- What is seen ---

    void at(const std::string &text) {
        s->wait_for("the cursor behind \"" + visible(text) + "\"", [&] {
            const auto place = s->cursor();
            return place.col == static_cast<int>(text.size()) && s->row(place.row) == trimmed(text);
        });
    }

    // On one row, and as it is; vi keys that the terminal echoes first need some room as well.
    bool fits(const std::string &text) const {
        return simple(text) && prompt.size() + text.size() < kColumns - 14;
    }
    void stands(const std::string &text) {
        if (fits(text)) at(prompt + text);
    }

    void answered() {
        if (fits(line) && fits(answer))
            s->wait_for("the answer \"" + answer + "\" to \"" + line + "\"", [&] {
                const int row = s->cursor().row;
                return row >= 2 && s->row(row) == trimmed(prompt) &&
                       s->row(row - 1) == trimmed(answer) &&
                       s->row(row - 2) == trimmed(prompt + line);
            });
        else
            printed(answer);
        at_rest();
    }

    void at_rest() {
        at(prompt);
        s->wait_editing(prompt);
        const pid_t pid = s->morp_pid();
        if (open == 0) open = descriptors(pid);
        s->wait_for(std::to_string(open) + " descriptors of morp",
                    [&] { return descriptors(pid) == open; });
        rss = resident_kib(pid);
    }

    void reading() {
        const pid_t pid = s->program_pid();
        s->wait_for("the program to read", [&] { return harness::nap(pid).state == 'S'; });
    }

    void check_recorded() {
        // The escapes of morp-history are those of printf.
        const std::string command =
            "set -o pipefail; '" MORP_HISTORY "' '" + file +
            "' | sed -nE 's/^ *[0-9]+ +[0-9]+  //p' | xargs -rd '\\n' env printf '%b\\n' >" + dir +
            "/lines";
        // NOLINTNEXTLINE(cert-env33-c): all of it is ours
        if (system(("bash -c \"" + command + "\"").c_str()) != 0) fault("the history is damaged");
        std::ostringstream all;
        all << std::ifstream(dir + "/lines").rdbuf();
        const Lines seen = split(all.str());
        if (!perhaps.empty() && seen.size() == recorded->size() + 1) typed(perhaps);
        const auto [want, is] =
            std::mismatch(recorded->begin(), recorded->end(), seen.begin(), seen.end());
        if (want != recorded->end() || is != seen.end())
            fault("recorded from line " + std::to_string(is - seen.begin() + 1) + ": \"" +
                  visible(is == seen.end() ? "" : *is) + "\" instead of \"" +
                  visible(want == recorded->end() ? "" : *want) + '"');
    }

    // --- A program from start to end ---

    void take(const std::string &what, const Fields &names) {
        harness::take(*s, harness::filled(harness::filled(what, names), names), verbs);
        if (testing::UnitTest::GetInstance()->Failed()) fault("see above");
    }

    void start(bool lines_only) {
        program = (lines_only ? rows_of("Programs")[0] : choose("Programs")).fields;
        prompt = unescaped(program.at("prompt"));
        const Style &style = kStyles[visits++ % std::size(kStyles)];
        vi = style.name == std::string_view("vi");
        extended = style.extended;
        file = dir + "/" + program.at("name");
        recorded = &files[file];
        note("visit " + std::to_string(visits) + ": " + program.at("name") + ", " + style.name +
             (extended ? ", extended" : ""));
        perhaps.clear();
        const std::string command = unescaped(program.at("command"));
        harness::Options options = {.style = style.name,
                                    .program = {"sh", "-c", command},
                                    .env = {{"Q_VXHISTFILE", file},
                                            {"Q_VXEXTENDED", extended ? "1" : "0"},
                                            {"LC_ALL", extended ? "C.UTF-8" : "C"},
                                            {"LESSHISTFILE", "-"},
                                            {"SQLITE_HISTORY", "/dev/null"}}};
        if (valgrind) {
            options.outer = harness::words_of(std::string(kMemcheck) + dir + "/memcheck " +
                                              harness::morp() + " --");
            options.outer.insert(options.outer.end(), {"sh", "-c", command});
        }
        s = std::make_unique<harness::Script>(options);
        at(prompt);
        s->wait_editing(prompt);
        // Nothing was printed yet where there is no prompt: morp can't write the row again.
        take("add $line\\r then typed $line then answer", new_names());
        open = 0;  // the history is open from now on
    }

    void end() {
        const Case &row = any_of(rows_of("Ends"));
        Fields names = new_names();
        names["killed"] = extended ? "-9" : "0";
        names["middle"] = choose("Middles").fields.at("steps");
        note(row.fields.at("name"));
        take(row.fields.at("steps"), names);
        s.reset();  // its end checks the terminal and what sanitizers have said
        if (testing::UnitTest::GetInstance()->Failed()) fault("see above");
        check_recorded();
    }

    // With `many`: so many lines without pause. Memory must not grow after the first thousand.
    void visit(std::size_t many) {
        start(many > 0);
        const std::size_t first = lines;
        long flat = 0;
        for (std::size_t n = roll(60); many > 0 ? lines < first + many : n > 0; --n) {
            const Case &row = many > 0 ? rows_of("Actions")[1] : choose("Actions");
            note(std::to_string(++steps) + " " + row.fields.at("name"));
            take(row.fields.at("steps"), new_names());
            if (roll(30) == 0) check_recorded();
            if (many == 0 || lines < first + 1000) continue;
            if (flat == 0) flat = rss;
            if (rss > flat) fault(std::to_string(rss - flat) + " KiB more than at first");
        }
        end();
    }
};

}  // namespace
}  // namespace soak

// NOLINTNEXTLINE(bugprone-exception-escape): what is no fault of morp's may end it as it likes
int main(int argc, char **argv) {
    using Clock = std::chrono::steady_clock;
    using std::chrono::minutes;
    testing::InitGoogleTest(&argc, argv);
    const std::string mode = argc > 2 ? argv[1] : "";
    if (mode != "minutes" && mode != "programs" && mode != "valgrind" && mode != "lines")
        return fputs("usage: soak minutes|programs|valgrind|lines N [SEED]\n", stderr), 2;
    const long count = strtol(argv[2], nullptr, 10);
    const long long seed = argc > 3 ? strtoll(argv[3], nullptr, 10) : time(nullptr);
    const bool lines = mode == "lines";
    soak::Soak soak(static_cast<unsigned long long>(seed));
    soak.valgrind = mode == "valgrind";
    std::printf("seed %lld\n", seed);
    try {
        const auto end = Clock::now() + minutes(count);
        auto next = Clock::now() + minutes(1);
        for (long n = 0; mode == "minutes" ? Clock::now() < end
                                           : n < (lines ? long{std::size(soak::kStyles)} : count);
             ++n) {
            soak.visit(lines ? static_cast<std::size_t>(count) : 0);
            if (!lines && Clock::now() < next) continue;
            next += minutes(1);
            soak.print_figures();
        }
    } catch (const std::exception &error) {
        constexpr std::size_t kShown = 40;
        std::printf("--- FAULT, seed %lld, step %zu. Last actions:\n", seed, soak.steps);
        for (std::size_t n = soak.log.size() - std::min(soak.log.size(), kShown);
             n < soak.log.size(); ++n)
            std::printf("%s\n", soak.log[n].c_str());
        std::printf("--- %s\n", error.what());
        (void)std::fflush(stdout);
        // NOLINTNEXTLINE(cert-env33-c): all of it is ours
        if (soak.valgrind) (void)!system(("cat " + soak.dir + "/memcheck").c_str());
        return 1;
    }
    std::printf("No fault in ");
    soak.print_figures();
    return 0;
}
