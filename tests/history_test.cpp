// history_test.cpp: the history file byte by byte, its index at every boundary, failing writes,
// several writers, the tool that checks a file. Any file against the byte-wise rules is the fuzz
// target's, fuzz/history_fuzz.cpp.
#include "history.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>

#include "history_reference.h"

using namespace std::string_literals;

static const std::string kHeader = "\x81\x01";
static const struct Folder {
    const std::string name = mkdtemp(std::string("/tmp/morp-history-XXXXXX").data());
    ~Folder() { std::filesystem::remove_all(name); }
} Dir;
static const std::string Path = Dir.name + "/history";

static std::string bytes() {
    std::ifstream in(Path);
    return {std::istreambuf_iterator<char>(in), {}};
}
static void append(const std::string &more) { std::ofstream(Path, std::ios::app) << more; }

// Without `size` the default: 128.
static void open(const std::string &path, const char *size = nullptr) {
    hist_close_for_test();
    setenv("Q_VXHISTFILE", path.c_str(), 1);
    size != nullptr ? setenv("Q_VXHISTSIZE", size, 1) : unsetenv("Q_VXHISTSIZE");
    ASSERT_EQ(hist_open(), 0);
}
static void open_with(const std::string &all, int reach = 128) {
    std::ofstream(Path) << all;
    open(Path, reach == 128 ? nullptr : std::to_string(reach).c_str());
}

static void record(const std::string &text) { hist_record(text.data(), text.size()); }

static std::string last_but(int back) {
    char to[kMaxLine];
    hist_copy(to, fc_fix->fixind - 1 - back, -1);
    return to;
}

// Exit status of morp-history. That of a sanitizer must not look like that for a damaged file.
static int tool_status() {
    const std::string call = "ASAN_OPTIONS=exitcode=99 '" MORP_HISTORY "' " + Path + " >/dev/null";
    return WEXITSTATUS(std::system((call + " 2>&1").c_str()));  // NOLINT(cert-env33-c)
}

static std::string sync_record(std::size_t n) {
    return "\x82\0"s + char(n >> 16) + char(n >> 8) + char(n) + '\0';
}

TEST(History, BytesOfEachRecord) {
    // What another process writes before, the text, the bytes behind it.
    const std::string kSteps[][3] = {{"", "ls", "\n\0"s},
                                     {"", "cat", "\n\0\0"s},  // the length would be odd
                                     {"other\n\0\0"s, "a\0b"s, "\n\0\0"s},
                                     {"", std::string(258, 'x'), "\n\0"s},
                                     {"", std::string(7906, 'x'), "\n\0"s},  // ends at 8192
                                     {"", "c", "\n\0\0"s + sync_record(8)},
                                     {"e\n\0\0"s, "d1", "\n\0"s + sync_record(10)}};
    for (const bool by_flush : {false, true}) {
        std::filesystem::remove(Path);
        open(Path);
        std::string expected = kHeader;
        for (const auto &[others, text, behind] : kSteps) {
            EXPECT_EQ(bytes(), expected);
            append(others);
            by_flush ? (void)fputs(text.c_str(), fc_fix->fixfd) : record(text);
            if (by_flush) hist_flush();
            expected += others + text.substr(0, text.find('\0')) + behind;
            EXPECT_EQ(difference(expected, 128), "");
        }
        record("");
        hist_cancel();
        EXPECT_EQ(bytes(), expected + "\x81\0"s);
        EXPECT_EQ(last_but(0), "e");
        EXPECT_EQ(tool_status(), 0);
        append("x");
        EXPECT_EQ(tool_status(), 1);
    }
}

TEST(History, CommandsInReach) {
    const std::pair<const char *, int> kSizes[] = {
        {"16", 16},
        {"-5", 0},
        {"", 0},
        {"abc", 0},
        {"1000001", 1'000'000},
        {"99999999999999999999", 1'000'000},
        {nullptr, 128},
    };
    for (const auto &[size, reach] : kSizes) {
        open(Path, size);
        EXPECT_EQ(fc_fix->fixmax, reach);
    }
}

TEST(History, OtherFilesAreLeftAlone) {
    const std::string fifo = Dir.name + "/fifo", text = Dir.name + "/text";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    std::ofstream(text) << "no history\n";
    struct stat st = {};
    for (const std::string &path : {""s, "/dev/null"s, Dir.name, fifo, text, fifo + "/no"}) {
        (void)stat(path.c_str(), &st);
        const auto before = std::pair(st.st_mode, st.st_size);
        open(path);
        record("ls");
        EXPECT_EQ(last_but(0), "ls") << path;
        (void)stat(path.c_str(), &st);
        EXPECT_EQ(before, std::pair(st.st_mode, st.st_size)) << path;
    }
    open_with(kHeader);
    ASSERT_EQ(stat(Path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600U);
}

// The search for a sync record begins or goes on where one stands, and the commands behind it are
// just as many as are wanted.
TEST(History, SyncRecordsAtEveryBoundary) {
    const std::string kHeads[] = {sync_record(777),
                                  sync_record(1) + "\x81\0"s,  // withdraws nothing
                                  // What is a record here depends on where one begins.
                                  sync_record(500) + "\x82\0\x82\0abcd\x81\0"s};
    for (int shift = -16; shift <= 9; shift++) {
        for (const int reach : {1, 2, 4600}) {
            for (const std::string &head : kHeads) {
                std::string all = reach == 2 ? sync_record(778) : "";
                for (int i = 1; i < reach; i++) all += "b\n\0\0"s;
                all = "b\n\0"s + all;
                const int from_end = (16 * reach + 16384) % 65536 + shift;
                all = std::string(std::size_t(from_end) - head.size() - all.size(), 'b') + all;
                all = kHeader + "a\n\0"s + std::string(99'999, 'a') + "\n\0"s + head + all;
                open_with(all, reach);
                ASSERT_EQ(difference(all, reach), "") << reach << ' ' << shift << ' ' << head;
            }
        }
    }
}

TEST(History, OpeningReadsOnlyTheTail) {
    open_with(kHeader);
    std::filesystem::resize_file(Path, 1LL << 42);  // takes minutes to read
    append(sync_record(777) + std::string(15'000, 'b') + "\n\0"s);
    open(Path, "1");
    EXPECT_EQ(fc_fix->fixind, 778);
    std::filesystem::resize_file(Path, 0);  // by another process
    record("ls");
    EXPECT_EQ(bytes() + std::to_string(fc_fix->fixind), kHeader + "ls\n\0"s + "2");
}

static void limit_files(rlim_t bytes) {
    const rlimit limit = {bytes, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
}

TEST(History, AWriteThatFailsHarmsNoOtherCommand) {
    (void)signal(SIGXFSZ, SIG_IGN);
    open_with(kHeader);
    for (std::size_t n = 0; n < 600; n++) record(std::string(1 + n % 29, 'a'));
    for (const std::string &start : {""s, kHeader + "one\n\0"s, bytes()}) {
        for (rlim_t room = 0; room < 24; room++) {
            SCOPED_TRACE(testing::Message() << start.size() << " and " << room);
            limit_files(start.size() + room);
            open_with(start);
            record("lost command");
            limit_files(RLIM_INFINITY);
            record("next");
            record("last");
            EXPECT_EQ(last_but(1) + last_but(0), "nextlast");
            EXPECT_EQ(fc_fix->fixind, Reference(bytes(), 1'000'000).number);  // of the whole file
            open(Path);
            EXPECT_EQ(difference(bytes(), 128), "");
        }
    }
}

TEST(History, WritersAtOnceLoseAndTearNothing) {
    constexpr int kWriters = 4, kLines = 5000;
    std::set<std::string> expected, seen;
    std::filesystem::remove(Path);
    hist_close_for_test();
    for (int n = 0; n < kWriters * kLines; n++) expected.insert(std::to_string(n));
    for (int w = 0; w < kWriters; w++) {
        if (fork() != 0) continue;
        open(Path);
        for (int i = 0; i < kLines; i++) record(std::to_string(w * kLines + i));
        _exit(0);
    }
    // A reader meanwhile sees whole commands only.
    open(Path);
    for (int left = kWriters; left > 0; hist_eof()) {
        if (waitpid(-1, nullptr, WNOHANG) > 0) left--;
        ASSERT_TRUE(fc_fix->fixind == 1 || expected.contains(last_but(0))) << last_but(0);
    }
    EXPECT_EQ(tool_status(), 0);  // the numbers in the sync records too
    open(Path, "20000");
    for (int back = 0; back < fc_fix->fixind - 1; back++) seen.insert(last_but(back));
    EXPECT_TRUE(seen == expected && fc_fix->fixind == kWriters * kLines + 1);
}

// Texts of pieces, so that every kind of stretch is looked for; compared piece by piece.
TEST(History, LowerCaseLettersStandForBothCases) {
    static const std::string kPieces[][2] = {{"a", "A"}, {"b", "B"},   {"é", "É"},  {"ÿ", "Ÿ"},
                                             {"ı", "I"}, {"A", ""},    {"É", ""},   {"-", ""},
                                             {"日", ""}, {"\xff", ""}, {"\xc3", ""}};
    unsigned random = 1;
    const auto below = [&random](unsigned n) {
        random = random * 1'103'515'245 + 12'345;
        return random / 65'536 % n;
    };
    const auto is_in = [](const std::string &text, const std::vector<unsigned> &needle) {
        for (std::size_t from = 0; from < text.size(); from++) {
            std::size_t at = from;
            for (const unsigned piece : needle)
                for (const std::string &look : kPieces[piece])
                    if (at <= text.size() && !look.empty() &&
                        text.compare(at, look.size(), look) == 0) {
                        at += look.size();
                        break;
                    } else if (&look != kPieces[piece]) {
                        at = text.size() + 1;
                    }
            if (at <= text.size()) return true;
        }
        return false;
    };
    ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    hist_begin(true);
    open_with(kHeader);
    std::vector<std::string> commands = {""};
    for (int n = 1; n < 120; n++) {
        commands.emplace_back("x");
        for (unsigned i = below(9); i > 0; i--) commands.back() += kPieces[below(11)][below(2)];
        record(commands.back());
    }
    for (int round = 0; round < 3000; round++) {
        std::vector<unsigned> needle;
        std::string text;
        for (unsigned i = below(4) + 1; i > 0; i--) {
            needle.push_back(below(11));
            text += kPieces[needle.back()][0];
        }
        int want = fc_fix->fixind - 1;
        while (want > 0 && !is_in(commands[std::size_t(want)], needle)) want--;
        ASSERT_EQ(std::max(hist_find(text.c_str(), fc_fix->fixind, 1, -1).his_command, 0), want)
            << text;
    }
    hist_begin(false);
    setlocale(LC_CTYPE, "C");
}

TEST(History, WordsAndPlaces) {
    open_with(kHeader + "one\n\0\0two\nlines\nhere\n\0cp a  b\n\0"s);
    char to[kMaxLine];
    for (const int word : {1, 2, 3, 7, 0, INT32_MIN})
        EXPECT_STREQ(hist_word(to, word), word == 1 ? "cp" : word == 2 ? "a" : "b") << word;
    // Command, line, lines to go; the command and line reached.
    constexpr int kMoves[][5] = {
        {1, 0, 1, 2, 0},  {1, 0, 3, 2, 2},  {1, 0, 4, 3, 0},       {3, 0, 1, 5, 0},
        {4, 0, -1, 3, 0}, {4, 0, -2, 2, 2}, {4, 0, -5, 1, 0},      {4, 0, -6, -1, 0},
        {2, 2, -2, 2, 0}, {9, 4, 0, 9, 4},  {4, 0, -32767, -1, 0}, {-70000, 0, 1, 2, 0},
    };
    for (const auto &[n, line, lines, to_n, to_line] : kMoves) {
        const histloc got = hist_locate(n, line, lines);
        EXPECT_TRUE(got.his_command == to_n && got.his_line == to_line) << n << ' ' << lines;
    }
    // A command longer than what is read at a time, the match across the border.
    open_with(kHeader + "one\n\0\0"s + std::string(65'533, 'x') + "\nneedle\n\0\0"s);
    EXPECT_EQ(hist_find("needle", 3, 1, -1).his_command, 2);
    EXPECT_EQ(hist_find("needle", 1, 1, 1).his_line, 1);
    EXPECT_EQ(hist_find("one", 3, 0, 0).his_command, 1);
    hist_close_for_test();
    EXPECT_EQ(hist_copy(to, 1, -1), -1);
    EXPECT_EQ(hist_find("", 1, 1, -1).his_command, -1);
}
