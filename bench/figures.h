// figures.h: what is measured, on whom, and the bar for each figure.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "session.h"

namespace bench {

// Programs and folder that the figures use.
struct Setting {
    std::string morp;
    std::string relay;
    std::string load;
    std::string folder;  // for home and history files
};

// A way in which morp edits: a pair of columns in the table.
struct Style {
    const char *name;
    Words env;
    const char *edit;    // keys that begin a line in which the editor has each key after them
    const char *shown;   // what such a line ends in then, "a" being its text
    const char *recall;  // keys for the line before, in a fresh line
    const char *search;  // keys in front of a text to search for towards older lines
};

const std::vector<Style> &styles();

// How a figure is judged.
enum class Bar {
    ratio,     // morp's value by the yardstick's
    absolute,  // morp's value itself
    none,      // for information
};

// One line of the table. A measurement gives as many values as it has rows.
struct Row {
    const char *what;
    const char *unit;
    double scale;  // from the measured value to `unit`
    Bar judged;
    double bar;  // for every style
};

using Values = std::vector<double>;

// Each function is one round and gives a value for each row.
struct Measurement {
    const char *name;  // on the command line
    std::vector<Row> rows;
    std::function<Values(const Style &)> morp;
    std::function<Values()> yardstick = nullptr;  // none where only absolute values count
    std::function<Values()> script = nullptr;     // where script(1) can be measured as well
    bool any_style = false;                       // they don't differ: only the first is measured
};

std::vector<Measurement> measurements(const Setting &setting);

}  // namespace bench
