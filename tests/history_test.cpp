// history_test.cpp: the history file byte by byte, its index against a byte-wise reference, look-up
// and search, damaged files, failing writes, several writers.
#include "history.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>

#include "history_reference.h"
#include "morp_defs.h"

using namespace std::string_literals;

static const std::string kHeader = "\x81\x01";

// Each case has a folder of its own and no history open.
struct History : testing::Test {
    History() {
        char name[] = "/tmp/morp-history-XXXXXX";
        dir = mkdtemp(name);
        path = dir + "/history";
        setenv("Q_VXHISTFILE", path.c_str(), 1);
        unsetenv("Q_VXHISTSIZE");
    }
    ~History() override {
        hist_close_for_test();
        std::filesystem::remove_all(dir);
    }
    History(const History &) = delete;
    History &operator=(const History &) = delete;

    std::string bytes() const {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    void write(const std::string &all) const { std::ofstream(path, std::ios::binary) << all; }
    // As another process would.
    void append(const std::string &more) const {
        std::ofstream(path, std::ios::binary | std::ios::app) << more;
    }
    void open(const std::string &all, int reach = 128) const {
        write(all);
        reopen(std::to_string(reach).c_str());
    }
    static void reopen(const char *size = nullptr) {
        hist_close_for_test();
        if (size != nullptr) setenv("Q_VXHISTSIZE", size, 1);
        ASSERT_EQ(hist_open(), 0);
    }

    std::string dir, path;
};

// The same numbers in each run.
static std::mt19937 numbers(unsigned seed) { return std::mt19937(seed); }

static void record(const std::string &text) { hist_record(text.data(), text.size()); }

static std::string copy(int n, int line = -1) {
    char to[kMaxLine];
    hist_copy(to, n, line);
    return to;
}

static std::string newest() { return copy(fc_fix->fixind - 1); }

static std::string sync_record(int number) {
    return "\x82\0"s + static_cast<char>(number >> 16) + static_cast<char>(number >> 8) +
           static_cast<char>(number) + '\0';
}

// A healthy file of `count` commands "<n> <padding>".
static std::string healthy_file(int count, std::size_t length) {
    std::string all = kHeader;
    for (int n = 1; n <= count; n++) {
        std::string text = std::to_string(n) + ' ';
        all += text + std::string(length - std::min(length, text.size()), 'x') + "\n\0"s;
        if (all.size() % 2 != 0) all += '\0';
        if (all.size() > 8192) all += sync_record(n + 1);
    }
    return all;
}

// --- Bytes ---

TEST_F(History, BytesOfAFreshFile) {
    reopen();
    EXPECT_EQ(bytes(), kHeader);
    record("ls");
    EXPECT_EQ(bytes(), kHeader + "ls\n\0"s);
    EXPECT_EQ(hist_position(2), 6);
    record("cat");  // one NUL more: the length would be odd
    EXPECT_EQ(bytes(), kHeader + "ls\n\0cat\n\0\0"s);
    record("a\0b"s);  // no NUL inside a record
    record("");       // an empty record would not count
    EXPECT_EQ(bytes(), kHeader + "ls\n\0cat\n\0\0a\n\0\0"s);
    hist_cancel();
    EXPECT_EQ(bytes(), kHeader + "ls\n\0cat\n\0\0a\n\0\0\x81\0"s);
    EXPECT_EQ(fc_fix->fixind, 3);
    EXPECT_EQ(newest(), "cat");
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600U);
}

TEST_F(History, TextWrittenByTheCallerEndsWithFlush) {
    reopen();
    hist_eof();
    append("other\n\0"s);  // came between the look and the write
    fputs("ls", fc_fix->fixfd);
    hist_flush();
    EXPECT_EQ(bytes(), kHeader + "other\n\0ls\n\0\0"s);
    EXPECT_EQ(fc_fix->fixind, 3);
    EXPECT_EQ(newest(), "ls");
}

TEST_F(History, SyncRecordsBeyond8192) {
    for (const bool by_flush : {false, true}) {
        SCOPED_TRACE(by_flush);
        std::string expected = healthy_file(1, 8186);
        ASSERT_EQ(expected.size(), 8190U);
        open(expected);
        const auto add = [&](const std::string &text, const std::string &tail) {
            if (by_flush) {
                fputs(text.c_str(), fc_fix->fixfd);
                hist_flush();
            } else {
                record(text);
            }
            expected += text + tail;
            EXPECT_EQ(bytes(), expected);
            EXPECT_EQ(fc_fix->fixcnt, static_cast<long>(expected.size()));
            EXPECT_EQ(newest(), text);
        };
        expected.resize(8186 - 2);
        expected += "\n\0"s;
        open(expected);
        add("ab12", "\n\0"s);  // ends at 8192, not beyond
        add("c", "\n\0\0"s + sync_record(4));
        add("d1", "\n\0"s + sync_record(5));
        hist_close_for_test();
    }
}

TEST_F(History, RingSizes) {
    const struct {
        const char *size;
        int fixmax, ring;
    } kCases[] = {{nullptr, 128, 256},
                  {"128", 128, 256},
                  {"15", 15, 16},
                  {"16", 16, 32},
                  {"0", 0, 16},
                  {"-5", 0, 16},
                  {"", 0, 16},
                  {"abc", 0, 16},
                  {"1000000", 1000000, 1 << 20},
                  {"1000001", 1000000, 1 << 20},
                  {"99999999999999999999", 1000000, 1 << 20}};
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.size != nullptr ? c.size : "unset");
        std::filesystem::remove(path);
        unsetenv("Q_VXHISTSIZE");
        reopen(c.size);
        EXPECT_EQ(fc_fix->fixmax, c.fixmax);
        const int count = std::min(c.ring, 1000) + 2;
        for (int i = 0; i < count; i++) record("x");
        // As many as the ring has entries, the line being edited among them.
        EXPECT_NE(hist_position(std::max(fc_fix->fixind - c.ring + 1, 1)), -1);
        EXPECT_EQ(hist_position(fc_fix->fixind - c.ring), -1);
        EXPECT_EQ(hist_position(0), -1);
        EXPECT_EQ(hist_position(fc_fix->fixind + 1), -1);
    }
}

// --- Which file is used ---

TEST_F(History, OtherFilesAreLeftAlone) {
    const std::string folder = dir + "/folder", fifo = dir + "/fifo", text = dir + "/text";
    std::filesystem::create_directory(folder);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    std::ofstream(text) << "no history\n";
    ASSERT_EQ(chmod(text.c_str(), 0644), 0);
    for (const std::string &name : {""s, "/dev/null"s, folder, fifo, text, dir + "/no/such"}) {
        SCOPED_TRACE(name);
        setenv("Q_VXHISTFILE", name.c_str(), 1);
        struct stat before = {}, after = {};
        (void)stat(name.c_str(), &before);
        reopen();
        record("echo hi");
        record("ls");
        EXPECT_EQ(copy(1), "echo hi");
        EXPECT_EQ(hist_find("ls", 3, 0, -1).his_command, 2);
        (void)stat(name.c_str(), &after);
        EXPECT_EQ(before.st_mode, after.st_mode);
        EXPECT_EQ(before.st_size, after.st_size);
        EXPECT_NE(fcntl(fileno(fc_fix->fixfd), F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_NE(fcntl(fileno(fc_fix->fixfd), F_GETFL) & O_APPEND, 0);
    }
}

TEST_F(History, ModeOfAnOldFile) {
    write(kHeader + "ls\n\0"s);
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    reopen();
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600U);
}

TEST_F(History, FallbackName) {
    unsetenv("Q_VXHISTFILE");
    const char *old = getenv("HOME");
    const std::string home = old != nullptr ? old : "/";
    setenv("HOME", (dir + "/me").c_str(), 1);
    std::filesystem::create_directory(dir + "/me.");
    reopen();
    EXPECT_TRUE(std::filesystem::exists(dir + "/me./history"));
    unsetenv("HOME");
    reopen();
    record("x");
    EXPECT_EQ(copy(1), "x");
    setenv("HOME", home.c_str(), 1);
}

TEST_F(History, WithoutAHistoryNothingHappens) {
    hist_eof();
    hist_flush();
    hist_cancel();
    record("x");
    char to[kMaxLine];
    EXPECT_EQ(hist_copy(to, 1, -1), -1);
    EXPECT_EQ(hist_word(to, 1), nullptr);
    EXPECT_EQ(hist_find("", 1, 1, -1).his_command, -1);
    EXPECT_EQ(hist_locate(1, 0, 1).his_command, -1);
}

// --- Index and look-up against the reference ---

static void compare(const std::string &file, int reach, std::mt19937 &random) {
    const Reference expected(file, reach);
    ASSERT_EQ(fc_fix->fixind, expected.number());
    const int low = fc_fix->fixind - reach - 3, high = fc_fix->fixind + 2;
    const int oldest = std::max(low - reach - 30, -3);  // beyond the ring
    for (int n = high; n >= oldest; n -= 1 + (high - oldest) / 1000) {
        ASSERT_EQ(hist_position(n), expected.start(n)) << n;
        EXPECT_EQ(hist_copy(nullptr, n, -1), expected.copy(nullptr, n, -1)) << n;
        for (const int line : {-1, 0, 1}) {
            char to[kMaxLine];
            std::string wanted;
            ASSERT_EQ(hist_copy(to, n, line), expected.copy(&wanted, n, line)) << n << ' ' << line;
            // The reference's text holds no NUL.
            ASSERT_EQ(to, wanted) << n << ' ' << line;
        }
    }
    const auto pick = [&](int from, int to) {
        return std::uniform_int_distribution<int>(from, to)(random);
    };
    for (int i = 0; i < 60; i++) {
        std::string what(static_cast<std::size_t>(pick(0, 4)), 'a');
        for (char &c : what) c = "abc\n\x01\x82"[pick(0, 5)];
        const int from = pick(low, high), anywhere = pick(0, 1), direction = pick(0, 1) * 2 - 1;
        const histloc got = hist_find(what.c_str(), from, anywhere, direction);
        const histloc wanted = expected.find(what, from, anywhere != 0, direction);
        ASSERT_EQ(got.his_command, wanted.his_command) << testing::PrintToString(what) << from;
        ASSERT_EQ(got.his_line, wanted.his_line) << testing::PrintToString(what) << from;
    }
}

// A file of all kinds of records, `damage` in a hundred of them wrong in some way.
static std::string random_file(std::mt19937 &random, int damage, bool old_format) {
    const auto pick = [&](int from, int to) {
        return std::uniform_int_distribution<int>(from, to)(random);
    };
    std::string all = old_format ? "\x81\0"s : kHeader;
    int number = 1;
    const int records = pick(0, 4) == 0 ? pick(0, 5) : pick(100, 1500);
    const int longest = pick(0, 3) == 0 ? 300 : 12;
    for (int i = 0; i < records; i++) {
        std::string text;
        for (int length = pick(1, longest); length > 0; length--)
            text += "aaabbbcc\n\x82\x81\x01"[pick(0, pick(0, 9) == 0 ? 11 : 7)];
        if (pick(0, 3000) == 0) text.append(70000, 'b');
        all += text + "\n\0"s;
        number++;
        if (pick(0, 30) == 0 && number > 1) all += "\x81\0"s, number--;
        if (all.size() % 2 != 0) all += '\0';
        if (all.size() > 8192) all += sync_record(number);
        if (pick(0, 99) >= damage) continue;
        switch (pick(0, 6)) {
            case 0:
                all += sync_record(pick(0, 1) == 0 ? pick(0, 3) : pick(0, (1 << 24) - 1));
                break;
            case 1:
                all[static_cast<std::size_t>(pick(2, static_cast<int>(all.size()) - 1))] =
                    "\0\x81\x82\n"[pick(0, 3)];
                break;
            case 2:
                all.resize(all.size() - static_cast<std::size_t>(pick(0, 3)));
                break;
            case 3:
                for (int k = pick(1, 40); k > 0; k--) all += "\x81\0"s;
                break;
            case 4:  // what is a sync record depends on where one starts to look
                for (int k = pick(1, pick(0, 9) == 0 ? 4000 : 2), a = pick(0, 1); k > 0; k--)
                    all += a != 0 ? "\x82\0a\0"s : "\x82\0"s;
                break;
            case 5:
                all += "\x82\0"s;
                break;
            default:
                all += "a\0"s;
        }
    }
    return all;
}

TEST_F(History, IndexAndSearchEqualTheByteWiseRules) {
    std::mt19937 random = numbers(1);
    constexpr int kReaches[] = {0, 1, 15, 16, 128, 700};
    for (int round = 0; round < 240; round++) {
        SCOPED_TRACE(round);
        const int damage = round % 3 == 0 ? 0 : round % 3 == 1 ? 1 : 20;
        const std::string file = random_file(random, damage, round % 7 == 6);
        const int reach = kReaches[random() % std::size(kReaches)];
        open(file, reach);
        compare(file, reach, random);
        if (HasFailure()) return;
    }
}

static std::string short_commands(int count) {
    std::string all;
    for (int i = 0; i < count; i++) all += "b\n\0\0"s;
    return all;
}

// A sync record where the search for one begins or ends, or where it goes on to the next block. The
// number of commands behind it is just what is to come into reach.
TEST_F(History, SyncRecordsAtEveryBoundary) {
    std::mt19937 random = numbers(4);
    const struct {
        int reach;
        int from_end;      // where the record stands, but for `shift` below
        std::string last;  // behind the long command that follows the record
    } kCases[] = {{1, 8192 + 16 + 8192, ""},
                  {2, 8192 + 2 * 16 + 8192, sync_record(778) + short_commands(1)},
                  {4600, 8192 + 4600 * 16 + 8192 - 65536, short_commands(4599)}};
    for (const auto &c : kCases) {
        for (int shift = -9; shift <= 9; shift++) {
            SCOPED_TRACE(testing::Message() << c.reach << ' ' << shift);
            const auto length = static_cast<std::size_t>(c.from_end + shift) - 8 - c.last.size();
            const std::string file = kHeader + std::string(100'000, 'a') + "\n\0"s +
                                     sync_record(777) + std::string(length, 'b') + "\n\0"s + c.last;
            open(file, c.reach);
            compare(file, c.reach, random);
        }
    }
}

// Short commands in front of long ones: more come into reach than the ring holds.
TEST_F(History, ShortCommandsBehindLongOnes) {
    std::mt19937 random = numbers(5);
    std::string file = healthy_file(3000, 12);
    for (int n = 3001; n <= 3012; n++)
        file += std::string(1500 - 2, 'x') + "\n\0"s + sync_record(n + 1);
    open(file, 15);
    EXPECT_EQ(fc_fix->fixind, 3013);
    compare(file, 15, random);
}

// Where every second byte seems to begin a sync record, what is one depends on where one starts to
// look. Two steps of the search begin in such places; one command more or less decides on a third.
TEST_F(History, SyncRecordsWithinSyncRecords) {
    std::mt19937 random = numbers(6);
    const auto repeat = [](int count, const std::string &what) {
        std::string all;
        for (int i = 0; i < count; i++) all += what;
        return all;
    };
    const std::string swarm = repeat(1500, "\x82\0"s);
    const std::string front = "f\n\0"s + repeat(699, std::string(22, 'f') + "\n\0"s);
    const std::string back = "b\n\0"s + repeat(1114, std::string(38, 'b') + "\n\0"s);
    for (int round = 0; round < 18; round++) {
        SCOPED_TRACE(round);
        std::string file = kHeader + std::string(50'000, 'a') + "\n\0"s;
        file.append(swarm).append(repeat(round / 3 % 3, "\x82\0"s)).append(front);
        file.append(swarm).append(repeat(round % 3, "\x82\0"s)).append(back);
        const int reach = 700 + 1115 - round / 9;
        open(file, reach);
        compare(file, reach, random);
    }
}

// What comes in pieces, also cut within a record, is indexed as in one go.
TEST_F(History, PiecesFromOtherWriters) {
    std::mt19937 random = numbers(2);
    for (int round = 0; round < 20; round++) {
        SCOPED_TRACE(round);
        const std::string file = random_file(random, 5, false).substr(0, 8000);
        open(kHeader, 700);
        for (std::size_t done = 2; done < file.size();) {
            const std::size_t more = random() % 90 + 1;
            append(file.substr(done, more));
            done += more;
            hist_eof();
        }
        compare(file, 700, random);
        if (HasFailure()) return;
    }
}

TEST_F(History, CommandsPastAShort) {
    open(healthy_file(40'000, 12), 50'000);
    EXPECT_EQ(fc_fix->fixind, 40'001);
    EXPECT_EQ(hist_find("33333 ", 40'001, 0, -1).his_command, 33'333);
    EXPECT_EQ(hist_locate(40'001, 0, -7001).his_command, 33'000);
    EXPECT_EQ(hist_find("7 xx", 6, 0, 1).his_command, 7);
}

// Bytes this process has read so far.
static long bytes_read() {
    std::ifstream io("/proc/self/io");
    std::string key;
    long value = 0;
    io >> key >> value;
    return key == "rchar:" ? value : -1;
}

TEST_F(History, OpeningReadsOnlyTheTail) {
    write(healthy_file(100'000, 20));
    const long before = bytes_read();
    if (before < 0) GTEST_SKIP() << "no /proc/self/io";
    reopen();
    EXPECT_LT(bytes_read() - before, 100'000);
    EXPECT_EQ(fc_fix->fixind, 100'001);
    EXPECT_NE(hist_position(100'001 - 128), -1);
}

// --- Damage ---

TEST_F(History, DamagedFilesStayUsable) {
    std::string swarm =
        kHeader;  // sync records at every turn, none of them where the last one ends
    while (swarm.size() < 400'000) swarm += "\x82\0"s;
    const struct {
        const char *name;
        std::string file;
        const char *newest;  // command before and after recording "ls"
        const char *after;
    } kCases[] = {
        {"half a header", "\x81", "", "ls"},
        {"no command, many cancels", kHeader + "\x81\0\x81\0\x81\0"s, "", "ls"},
        {"a cancel without a command", kHeader + "\x81\0one\n\0"s, "one", "ls"},
        {"no last NUL", kHeader + "one\n\0two\n\0thr"s, "two", "ls"},
        {"no last NUL behind a newline", kHeader + "one\n\0two\n"s, "one", "ls"},
        {"a sync record without its NUL", kHeader + "one\n\0\x82\0\0\0\2"s, "one", "ls"},
        {"a sync record cut short", kHeader + "one\n\0\x82\0\1"s, "one", "ls"},
        {"a lone 130", kHeader + "one\n\0\x82"s, "one", "ls"},
        {"a huge number",
         kHeader + std::string(30'000, 'x') + "\n\0\x82\0\xff\xff\xff\0one\n\0"s +
             std::string(20'000, 'y') + "\n\0"s,
         nullptr, "ls"},
        {"number 0", healthy_file(1, 30'000) + sync_record(0) + healthy_file(2000, 9).substr(2),
         "2000 xxxx", "ls"},
        {"nothing but sync records", swarm, "", "ls"},
        {"nothing but NULs", kHeader + std::string(50'000, '\0'), "", "ls"},
        {"no NUL at all", kHeader + std::string(200'000, 'a'), "", "ls"},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.name);
        open(c.file);
        if (c.newest != nullptr) {
            EXPECT_EQ(newest(), c.newest);
        }
        hist_find("nowhere", fc_fix->fixind, 1, -1);
        record("ls");
        EXPECT_EQ(newest(), c.after);
        EXPECT_EQ(bytes().substr(0, c.file.size()), c.file);
        // Another run sees the same.
        reopen();
        EXPECT_EQ(newest(), c.after);
    }
}

TEST_F(History, AFileEmptiedByOthersStartsAgain) {
    open(healthy_file(100, 20));
    write("");
    record("ls");
    EXPECT_EQ(bytes(), kHeader + "ls\n\0"s);
    EXPECT_EQ(copy(1), "ls");
    EXPECT_EQ(copy(50), "");
}

// --- Failing writes ---

class FileLimit {
public:
    explicit FileLimit(std::size_t bytes) : old_handler_(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &old_);
        rlimit limit = old_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileLimit() {
        setrlimit(RLIMIT_FSIZE, &old_);
        (void)signal(SIGXFSZ, old_handler_);
    }
    FileLimit(const FileLimit &) = delete;
    FileLimit &operator=(const FileLimit &) = delete;

private:
    void (*old_handler_)(int);
    rlimit old_;
};

TEST_F(History, AWriteThatFailsHarmsNoOtherCommand) {
    // `room` bytes of the record still fit on the disk, the header's included.
    const std::string healthy = healthy_file(500, 20);
    for (const std::string &start : {""s, kHeader + "one\n\0"s, healthy}) {
        for (std::size_t room = 0; room < 16; room++) {
            SCOPED_TRACE(testing::Message() << start.size() << " and " << room);
            write(start);
            {
                const FileLimit limit(start.size() + room);
                reopen();
                const std::string before = newest();
                record("lost command");
                const int number = fc_fix->fixind;
                EXPECT_TRUE(newest() == before || room >= 14) << newest();
                EXPECT_EQ(hist_copy(nullptr, number, -1), 0);
            }
            record("next");
            EXPECT_EQ(newest(), "next");
            const int number = fc_fix->fixind;
            record("last");
            EXPECT_EQ(fc_fix->fixind, number + 1);
            std::mt19937 random = numbers(3);
            reopen();
            EXPECT_EQ(fc_fix->fixind, number + 1);
            compare(bytes(), 128, random);
            EXPECT_EQ(copy(number - 1), "next");
            EXPECT_EQ(newest(), "last");
        }
    }
}

// --- Several writers ---

static void write_lines(int writer, int count) {
    const bool open = hist_open() == 0;
    for (int i = 0; open && i < count; i++)
        record("writer " + std::to_string(writer) + " line " + std::to_string(i));
    _exit(open ? 0 : 1);
}

TEST_F(History, ConcurrentWritersLoseAndTearNothing) {
    constexpr int kWriters = 4, kLines = 5000;
    for (int w = 0; w < kWriters; w++)
        if (fork() == 0) write_lines(w, kLines);
    for (int w = 0; w < kWriters; w++) {
        int status = -1;
        ASSERT_GT(wait(&status), 0);
        EXPECT_EQ(status, 0);
    }
    // By the tail alone: so the numbers in the sync records are right.
    reopen();
    EXPECT_EQ(fc_fix->fixind, kWriters * kLines + 1);
    const std::string file = bytes();
    std::set<std::string> seen;
    std::size_t at = 2;
    while (at < file.size()) {
        const std::size_t end = file.find('\0', at);
        ASSERT_NE(end, std::string::npos);
        if (file[at] == '\x82') {
            ASSERT_EQ(file.substr(at, 6), sync_record(static_cast<int>(seen.size()) + 1));
            at += 6;
            continue;
        }
        // A writer that saw another's record half written may have ended it: that counts nothing.
        if (end > at + 1) {
            EXPECT_EQ(at % 2, 0U);
            EXPECT_TRUE(seen.insert(file.substr(at, end - at)).second);
        }
        at = end + 1;
    }
    for (int w = 0; w < kWriters; w++)
        for (int i = 0; i < kLines; i++)
            ASSERT_EQ(
                seen.count("writer " + std::to_string(w) + " line " + std::to_string(i) + "\n"),
                1U);
}

TEST_F(History, CommandsOfOthersAreNumberedToo) {
    reopen();
    record("mine");
    append("theirs\n\0\0\0also\n\0\0"s);
    EXPECT_EQ(hist_find("theirs", 2, 1, 1).his_command, -1);  // not looked at yet
    EXPECT_EQ(hist_copy(nullptr, 2, -1), 0);
    record("mine again");
    EXPECT_EQ(fc_fix->fixind, 5);
    EXPECT_EQ(copy(2), "theirs");
    EXPECT_EQ(copy(3), "also");
    EXPECT_EQ(copy(4), "mine again");
}

// --- Copy, word, locate, find ---

TEST_F(History, CopyIsCutTo257) {
    reopen();
    for (const std::size_t length : {256U, 257U, 258U, 259U, 300U}) {
        SCOPED_TRACE(length);
        const std::string text = std::string(length - 1, 'x') + 'y';
        record(text);
        for (const int line : {-1, 0}) {
            char to[kMaxLine + 1];
            std::memset(to, '#', sizeof to);
            hist_copy(to, fc_fix->fixind - 1, line);
            EXPECT_EQ(to, text.substr(0, 257)) << line;
            EXPECT_EQ(to[kMaxLine], '#');
        }
    }
}

TEST_F(History, LinesAndWords) {
    open(kHeader + "one\n\0\0two\nlines\nhere\n\0cp a  b\n\0"s);
    const struct {
        int command, line, count;
        const char *text;
    } kCopies[] = {
        {1, 0, 1, "one"},        {1, 1, 1, ""},
        {1, -1, 1, "one"},       {2, -1, 3, "two\nlines\nhere"},
        {2, 1, 2, "lines"},      {2, 2, 3, "here"},
        {2, 3, 3, ""},           {4, -1, 0, ""},
        {0, 0, 0, ""},           {-1000000, 0, 0, ""},
        {2147483647, -1, 0, ""},
    };
    for (const auto &c : kCopies) {
        SCOPED_TRACE(testing::Message() << c.command << ' ' << c.line);
        char to[kMaxLine];
        EXPECT_EQ(hist_copy(to, c.command, c.line), c.count);
        EXPECT_STREQ(to, c.text);
    }
    const struct {
        int word;
        const char *text;
    } kWords[] = {{1, "cp"}, {2, "a"}, {3, "b"}, {7, "b"}, {0, "b"}, {INT32_MIN, "b"}};
    for (const auto &c : kWords) {
        char to[kMaxLine];
        EXPECT_STREQ(hist_word(to, c.word), c.text) << c.word;
    }
    const struct {
        int command, line, lines, to_command, to_line;
    } kMoves[] = {
        {1, 0, 1, 2, 0},       {1, 0, 3, 2, 2},      {1, 0, 4, 3, 0},  {3, 0, 1, 5, 0},
        {4, 0, 1, 5, 0},       {4, 0, -1, 3, 0},     {4, 0, -2, 2, 2}, {4, 0, -5, 1, 0},
        {4, 0, -6, -1, 0},     {2, 2, -2, 2, 0},     {9, 4, 0, 9, 4},  {1, 0, 32767, 5, 0},
        {4, 0, -32767, -1, 0}, {-70000, 0, 1, 2, 0},
    };
    for (const auto &c : kMoves) {
        SCOPED_TRACE(testing::Message() << c.command << ' ' << c.line << ' ' << c.lines);
        const histloc got = hist_locate(c.command, c.line, c.lines);
        EXPECT_EQ(got.his_command, c.to_command);
        EXPECT_EQ(got.his_line, c.to_line);
    }
}

TEST_F(History, Search) {
    open(kHeader + "ls -l\n\0\0cd; ls\n\0\0a\nab\n\0\0aab\n\0\0\x82\0\0\0\0\0withdrawn\n\0\x81\0"s);
    ASSERT_EQ(fc_fix->fixind, 5);
    const struct {
        const char *text;
        int from, anywhere, direction, command, line;
    } kCases[] = {
        {"ls", 5, 1, -1, 2, 0},   {"ls", 5, 0, -1, 1, 0},  {"ls", 1, 1, -1, -1, 0},
        {"ls", 1, 1, 1, 2, 0},    {"ls", 0, 1, 1, 1, 0},   {"ab", 4, 1, -1, 3, 1},
        {"ab", 5, 1, -1, 4, 0},   {"", 5, 1, -1, 4, 0},    {"", 1, 0, 1, 2, 0},
        {"", 5, 1, 1, -1, 0},     {"ab", 5, 1, 0, 4, 0},   {"withdrawn", 5, 1, -1, -1, 0},
        {"ab\n", 5, 1, -1, 4, 1}, {"zz", 5, 1, -1, -1, 0},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(testing::Message() << c.text << ' ' << c.from << ' ' << c.direction);
        const histloc got = hist_find(c.text, c.from, c.anywhere, c.direction);
        EXPECT_EQ(got.his_command, c.command);
        EXPECT_EQ(got.his_line, c.line);
    }
    // Commands longer than what is read at a time, the match across its border.
    std::string big(65'533, 'x');
    open(kHeader + "one\n\0\0"s + big + "\nneedle" + big + "\n\0last\n\0"s, 20);
    EXPECT_EQ(hist_find("needle", 4, 1, -1).his_command, 2);
    EXPECT_EQ(hist_find("needle", 1, 1, 1).his_line, 1);
    EXPECT_EQ(hist_find("xx", 4, 0, -1).his_command, 2);
    EXPECT_EQ(hist_find("one", 4, 1, -1).his_command, 1);
    EXPECT_EQ(hist_find("last", 1, 1, 1).his_command, 3);
    EXPECT_EQ(hist_find("needle", 4, 0, -1).his_command, -1);
}
