// figures.h: what is measured, on whom, and the bar for each figure.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

// Programs and folder that the figures use.
struct Setting {
    std::string morp;
    std::string relay;
    std::string load;
    std::string folder;  // for home and history files
};

// How a figure is judged.
enum class Bar {
    ratio,     // morp's value by that of the second contender
    absolute,  // morp's value itself
    none,      // for information
};

// One line of the table. A measurement gives as many values as it has rows.
struct Row {
    const char *what;
    const char *unit;
    double scale;  // from the measured value to `unit`
    Bar judged;
    double bar;
};

struct Contender {
    const char *name;
    std::function<std::vector<double>()> run;  // one round: a value for each row
};

// The first contender is morp, the second what it is compared with.
struct Measurement {
    const char *name;  // on the command line
    std::vector<Row> rows;
    std::vector<Contender> contenders;
};

std::vector<Measurement> measurements(const Setting &setting);

}  // namespace bench
