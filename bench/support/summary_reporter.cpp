#include "support/summary_reporter.hpp"

#include <unistd.h>

#include <cstdio>

namespace vpath_bench {

SummaryReporter::SummaryReporter()
    : benchmark::ConsoleReporter(::isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}

void SummaryReporter::ReportRuns(const std::vector<Run>& runs) {
    benchmark::ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
        m_failed = m_failed || run.error_occurred;
        m_runs.push_back(run);
    }
}

const SummaryReporter::Run* SummaryReporter::Find(const std::string& name, int threads,
                                                  const std::string& aggregate) const {
    const Run* single = nullptr;
    for (const auto& run : m_runs) {
        if (run.run_name.function_name != name || run.threads != threads || run.error_occurred)
            continue;
        if (run.run_type == Run::RT_Aggregate && run.aggregate_name == aggregate)
            return &run;
        if (run.run_type == Run::RT_Iteration && !single)
            single = &run;
    }
    return single;
}

std::optional<double> SummaryReporter::Seconds(const std::string& name, int threads) const {
    const Run* run = Find(name, threads, "median");
    if (run == nullptr)
        return std::nullopt;
    return run->GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run->time_unit);
}

bool SummaryReporter::Ran(const std::string& name) const {
    for (const auto& run : m_runs) {
        if (run.run_name.function_name == name)
            return true;
    }
    return false;
}

std::string Rate(double perSecond) {
    char text[32];
    if (perSecond >= 1e9) {
        std::snprintf(text, sizeof text, "%.2f G", perSecond / 1e9);
    } else if (perSecond >= 1e6) {
        std::snprintf(text, sizeof text, "%.2f M", perSecond / 1e6);
    } else if (perSecond >= 1e3) {
        std::snprintf(text, sizeof text, "%.2f k", perSecond / 1e3);
    } else {
        std::snprintf(text, sizeof text, "%.0f", perSecond);
    }
    return text;
}

std::string Duration(double seconds) {
    char text[32];
    if (seconds >= 1.0) {
        std::snprintf(text, sizeof text, "%.2f s", seconds);
    } else if (seconds >= 1e-3) {
        std::snprintf(text, sizeof text, "%.1f ms", seconds * 1e3);
    } else if (seconds >= 1e-6) {
        std::snprintf(text, sizeof text, "%.1f us", seconds * 1e6);
    } else {
        std::snprintf(text, sizeof text, "%.1f ns", seconds * 1e9);
    }
    return text;
}

}  // namespace vpath_bench
