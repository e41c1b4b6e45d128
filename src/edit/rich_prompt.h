// rich_prompt.h: a prompt with colours and characters of any width, as extended mode writes it
// again.
#pragma once

// What came of the captured output.
struct RichPrompt {
    int columns;    // that it takes on the screen
    bool writable;  // the text made of it looks the same wherever it is written
    bool cut;       // its beginning was left out, "<" stands in its place
    bool coloured;  // the program has left a colour on, which the text takes back at both its ends
};

// The most bytes of such a text, the NUL behind it included.
inline constexpr int kRichPromptSize = 2 * 8192;

// Makes the text of the `captured` output behind its last line end, NUL behind it, at `dst`
// (kRichPromptSize): what prints, and the colours. Of one that is writable and wider than `most`
// columns only the end is taken.
RichPrompt rich_prompt(char *dst, const char *captured, int most);

// The end of the colour sequence that begins at `escape` in such a text; whether it is the one that
// takes all colours back.
const char *colour_end(const char *escape);
bool colour_none(const char *escape);
