// actor: the programs that the end-to-end tests run inside morp, one for each first argument. They
// are small and exact where a real program would do more than a test can account for.
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

void put(std::string_view text) {
    while (!text.empty()) {
        const ssize_t n = write(1, text.data(), text.size());
        if (n > 0)
            text.remove_prefix(static_cast<std::size_t>(n));
        else if (errno != EINTR)
            _exit(3);
    }
}

// One line without its newline; false at end of input.
bool get_line(std::string &line) {
    line.clear();
    char c = 0;
    ssize_t n = 0;
    while ((n = read(0, &c, 1)) == 1 || (n < 0 && errno == EINTR)) {
        if (n < 0) continue;
        if (c == '\n') return true;
        line += c;
    }
    return !line.empty();
}

termios settings() {
    termios now{};
    tcgetattr(0, &now);
    return now;
}

void set_raw() {
    termios raw = settings();
    cfmakeraw(&raw);
    tcsetattr(0, TCSANOW, &raw);
}

void set_echo(bool on, int when) {
    termios now = settings();
    if (on)
        now.c_lflag |= ECHO;
    else
        now.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(0, when, &now);
}

// Each line comes back as <line>; ends at end of input with <end>.
int answer(const char *prompt, const std::string &line_end) {
    std::string line;
    put(prompt);
    while (get_line(line)) put("<" + line + ">" + line_end + prompt);
    put("<end>" + line_end);
    return 0;
}

int echo(const char *prompt) { return answer(prompt, "\n"); }

// The same on a terminal that leaves output alone: what is written in one piece arrives in one.
int echo_whole(const char *prompt) {
    termios plain = settings();
    plain.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    tcsetattr(0, TCSANOW, &plain);
    return answer(prompt, "\r\n");
}

// Writes without pause while it takes as many bytes in raw mode as it is told; then both counts.
int flood_take(const char *how_many) {
    const std::size_t wanted = strtoul(how_many, nullptr, 10);
    set_raw();
    put("ready\r\n");
    fcntl(0, F_SETFL, O_NONBLOCK);
    std::size_t got = 0, wrong = 0;
    char bytes[512];
    const std::string filler(300, '.');
    while (got < wanted) {
        const ssize_t n = read(0, bytes, sizeof bytes);
        for (ssize_t i = 0; i < n; ++i, ++got)
            wrong += bytes[i] != static_cast<char>('a' + got % 26);
        std::string_view rest = filler;
        while (!rest.empty()) {
            const ssize_t m = write(1, rest.data(), rest.size());
            if (m > 0)
                rest.remove_prefix(static_cast<std::size_t>(m));
            else
                usleep(100);
        }
    }
    fcntl(0, F_SETFL, 0);
    put("\r\n<" + std::to_string(got) + " taken, " + std::to_string(wrong) + " wrong>\r\n");
    return 0;
}

// Asks first, and turns the echo off when that has surely been read; asks again when no answer
// comes, as for somebody who was too slow to notice.
void ask_before_silence() {
    pollfd keys{0, POLLIN, 0};
    do {
        set_echo(true, TCSADRAIN);
        put("\rPassword: ");
        usleep(5000);
        set_echo(false, TCSADRAIN);
    } while (poll(&keys, 1, 5000) == 0);
}

// Asks for a name and then for a password without echo, as a log-in does, and tells whether the
// echo was still off when it had come. With "silent" nothing is printed between the switch and the
// read, with "late" the question comes before the switch.
int secret(const char *how) {
    std::string name, word;
    put("login: ");
    get_line(name);
    if (strcmp(how, "late") == 0) ask_before_silence();
    set_echo(false, TCSADRAIN);
    if (strcmp(how, "late") != 0 && strcmp(how, "silent") != 0) put("Password: ");
    get_line(word);
    const bool echoed = (settings().c_lflag & ECHO) != 0;
    set_echo(true, TCSADRAIN);
    put("\n<" + name + "," + std::to_string(word.size()) + " characters, echo " +
        (echoed ? "on" : "off") + ">\n> ");
    get_line(name);
    return 0;
}

// Names the signals that reach it, until end of input.
void on_signal(int sig) {
    const std::string text = "<signal " + std::to_string(sig) + ">\n";
    put(text);
}
int signals(const char *) {
    struct sigaction action {};
    action.sa_handler = on_signal;
    for (const int sig : {SIGINT, SIGQUIT, SIGTSTP, SIGCONT}) sigaction(sig, &action, nullptr);
    return echo("> ");
}

constexpr struct {
    const char *name;
    int (*run)(const char *);
} kActs[] = {
    {"echo", echo},     {"echo-whole", echo_whole}, {"flood-take", flood_take},
    {"secret", secret}, {"signals", signals},
};

}  // namespace

int main(int argc, char **argv) {
    for (const auto &act : kActs) {
        if (argc > 1 && strcmp(argv[1], act.name) == 0) return act.run(argc > 2 ? argv[2] : "");
    }
    put("actor: no such act\n");
    return 2;
}
