// load.cpp: the program that runs behind morp and the relays while they are measured.
//
// load once              prints a prompt, reads one line, ends
// load answer            prints a prompt, answers each line with the line, until "end"
// load blocks|lines|bytes [raw] COUNT
//     between the words "<go>" and "<end>" writes COUNT blocks of 64 KiB, or COUNT lines or bytes
//     with a write each; raw: after it has turned all processing of its own terminal off. Then
//     waits for a key.
#include <termios.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static constexpr size_t kBlock = 65536;
static constexpr size_t kLine = 64;  // the newline included; divides a block

static void put(const char *data, size_t len) {
    while (len > 0) {
        const ssize_t n = write(STDOUT_FILENO, data, len);
        if (n < 0) exit(1);
        data += n;
        len -= static_cast<size_t>(n);
    }
}

static void put(const char *text) { put(text, strlen(text)); }

// As stdio on a terminal does, the answer goes in one write and the prompt in another.
static int answer(bool once) {
    char line[4096];
    for (;;) {
        put("> ");
        const ssize_t n = read(STDIN_FILENO, line, sizeof line - 1);
        if (n <= 1 || once) return 0;
        line[n - 1] = '\0';
        if (strcmp(line, "end") == 0) return 0;
        char text[sizeof line + 8];
        const int len = snprintf(text, sizeof text, "<%s>\n", line);
        put(text, static_cast<size_t>(len));
    }
}

static int print(size_t piece, long count) {
    static char block[kBlock];
    memset(block, 'x', sizeof block);
    for (size_t i = kLine - 1; i < sizeof block; i += kLine) block[i] = '\n';
    put("<go>\n");
    for (long i = 0; i < count; i++)
        put(piece == 1 ? block + static_cast<size_t>(i) % kLine : block, piece);
    put("<end>\n");
    char key;
    return read(STDIN_FILENO, &key, 1) == 1 ? 0 : 1;
}

int main(int argc, char **argv) {
    const char *what = argc > 1 ? argv[1] : "";
    if (strcmp(what, "once") == 0 || strcmp(what, "answer") == 0) return answer(what[0] == 'o');
    int next = 2;
    if (argc > next && strcmp(argv[next], "raw") == 0) {
        struct termios t;
        if (tcgetattr(STDIN_FILENO, &t) != 0) return 1;
        cfmakeraw(&t);
        if (tcsetattr(STDIN_FILENO, TCSANOW, &t) != 0) return 1;
        next++;
    }
    const long count = argc > next ? atol(argv[next]) : 0;
    if (strcmp(what, "blocks") == 0) return print(kBlock, count);
    if (strcmp(what, "lines") == 0) return print(kLine, count);
    if (strcmp(what, "bytes") == 0) return print(1, count);
    (void)fprintf(stderr, "usage: load once|answer|blocks|lines|bytes [raw] [count]\n");
    return 1;
}
