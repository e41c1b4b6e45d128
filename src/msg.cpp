// msg.cpp: see msg.h. One buffer for the whole process, which a catcher that ends it may write as
// well: no message is kept across a wait.
#include "msg.h"

#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "morp_defs.h"

[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp msg 1.0";

char Message_buf[kMessageSize];

static void compose(const char *format, va_list args) {
    (void)vsnprintf(Message_buf, sizeof Message_buf, format, args);  // cut is what is wanted
}

void message_format(const char *format, ...) {
    va_list args;
    va_start(args, format);
    compose(format, args);
    va_end(args);
}

void message_print(const char *format, ...) {
    va_list args;
    va_start(args, format);
    compose(format, args);
    va_end(args);
    (void)fprintf(stderr, "%s", Message_buf);  // nowhere left to report a failure
    (void)fflush(stderr);
}

const char *STRERROR(int err) { return strerror(err); }

void vis_dump(const char *, int, const char *b, int l) {
    // Four bytes of one rendering, the quote and the NUL fit behind this position.
    constexpr std::size_t kWrap = 507;
    std::size_t at = 0;
    if (b == nullptr) {
        Message_buf[0] = '\0';
        return;
    }
    Message_buf[at++] = '\'';
    for (int i = 0; i < l; i++) {
        const int c = byte_of(b[i]);
        if (is_printable(c) && c != '{' && c != '}') {
            Message_buf[at++] = b[i];
        } else {
            constexpr char kHex[] = "0123456789abcdef";
            const char code[] = {'{', kHex[c >> 4], kHex[c & 15], '}'};
            // A rendering that would run past the end is cut; the next byte starts it anew.
            for (const char part : code)
                if (at < kMessageSize - 1) Message_buf[at++] = part;
        }
        if (at > kWrap) at = 0;
    }
    Message_buf[at++] = '\'';
    Message_buf[at] = '\0';
}

static unsigned handler_bits(int sig) {
    struct sigaction now = {};
    if (sigaction(sig, nullptr, &now) != 0) return 0;
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(now.sa_handler));
}

void print_sig_handlers(const char *pfx) {
    message_format("%s: ", pfx);
    message_format("SIGINT=0x%08x; ", handler_bits(SIGINT));
    message_format("SIGTSTP=0x%08x; ", handler_bits(SIGTSTP));
    message_format("SIGCHLD=0x%08x; ", handler_bits(SIGCHLD));
    message_format("\n");
}
