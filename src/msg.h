// msg.h: the buffer in which every message is composed, and texts for tracing.
#pragma once

#include <cstddef>

inline constexpr std::size_t kMessageSize = 512;
// Valid until the next message.
extern char Message_buf[kMessageSize];

// Composes a message, cut to the buffer.
[[gnu::format(printf, 1, 2)]] void message_format(const char *format, ...);
// Composes a message and writes it to standard error.
[[gnu::format(printf, 1, 2)]] void message_print(const char *format, ...);

// The system's text for error number `err`. An interface for others: morp's own messages go through
// perror.
const char *STRERROR(int err);
// Renders `l` bytes at `b` into Message_buf between single quotes, each byte that is not printable,
// and each brace, as "{hh}". A rendering too long for the buffer goes on at its start, so that the
// last stretch survives. A null `b` gives the empty string. An interface for those who trace, whose
// file name and line it takes; morp itself calls it nowhere.
void vis_dump(const char *fname, int lineno, const char *b, int l);
// Trace hook: composes the dispositions of the keyboard's and the program's signals.
void print_sig_handlers(const char *pfx);
