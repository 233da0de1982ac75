#ifndef REPORT_H
#define REPORT_H

#include <benchmark/benchmark.h>
#include <string>
#include <vector>

/// One row of the final table: a figure, what it is held against, and the most that their ratio
/// may be.
struct Comparison {
    std::string what;
    std::string figure;   ///< name of a benchmark, as "LoadSave/10000"
    std::string against;  ///< name of another one
    std::string meaning;  ///< what that one does, in words
    double atMost = 0;    ///< 0 when there is no target
    bool isCpu = false;   ///< of processor time, which a busy machine disturbs less
};

/// The main() of a benchmark program: enters the private place, runs the registered benchmarks in
/// mixed order, several times each, and prints what Google Benchmark prints; then a row for every
/// comparison, from medians, which begins with "| ". Arguments are Google Benchmark's and override
/// the defaults.
int benchMain(int argc, char** argv, const std::vector<Comparison>& comparisons);

/// Prints one row of the table.
void printRow(const std::string& what, const std::string& figure, const std::string& reference,
              const std::string& ratio, const std::string& target, const std::string& verdict);

/// Prints a row for a figure without a floor: its text and value, the most that it may be (0 when
/// there is no target) and that in words.
void printFigure(const std::string& what, const std::string& text, double value, double atMost,
                 const std::string& target);

/// A time in the unit that suits it, as "26.3 ms".
std::string timeText(double seconds);

/// "10000" for "10,000".
std::string withoutCommas(std::string number);

#endif
