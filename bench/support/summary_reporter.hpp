#pragma once
// SummaryReporter: Google Benchmark's console output, keeping the runs so that a program can print
// its own summary table after them, and noting whether any run failed.

#include <optional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace vpath_bench {

class SummaryReporter : public benchmark::ConsoleReporter {
  public:
    // Colour only when standard output is a terminal, so logs stay readable.
    SummaryReporter();

    void ReportRuns(const std::vector<Run>& runs) override;

    // Whether a run reported an error (SkipWithError).
    bool Failed() const noexcept { return m_failed; }
    // The run of the benchmark registered as `name` with `threads` threads that has the aggregate
    // `aggregate` ("median"), else its first single run; null if there is none.
    const Run* Find(const std::string& name, int threads, const std::string& aggregate) const;
    // The median real time in seconds of the benchmark registered as `name` (its single run when
    // it was not repeated); none if it did not run or failed.
    std::optional<double> Seconds(const std::string& name, int threads = 1) const;
    // Whether any run of the benchmark registered as `name` was reported.
    bool Ran(const std::string& name) const;

  private:
    std::vector<Run> m_runs;
    bool m_failed = false;
};

// Human figures for the summary tables: 1234567.0 => "1.23 M", 0.0123 => "12.3 ms".
std::string Rate(double perSecond);
std::string Duration(double seconds);

}  // namespace vpath_bench
