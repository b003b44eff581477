// Console output of a benchmark run, then ratios between its benchmarks'
// CPU times, or real times for work spread over threads (the median of each
// when the run repeats them), so a figure is always a ratio against a peer
// measured in the same run.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vorl::bench {

class RatioReporter : public benchmark::ConsoleReporter {
  public:
    // print(time) runs after the table; time(name) is 0 for a benchmark
    // that did not run.
    using Printer = std::function<void(const std::function<double(const std::string &)> &time)>;
    enum class Clock { Cpu, Real };
    explicit RatioReporter(Printer print, Clock clock = Clock::Cpu) : print_(std::move(print)), clock_(clock) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs) {
            if (r.error_occurred) continue;
            const std::string name = r.run_name.str();
            const double t = clock_ == Clock::Real ? r.GetAdjustedRealTime() : r.GetAdjustedCPUTime();
            if (r.run_type == Run::RT_Iteration && !median_.count(name)) time_[name] = t;
            if (r.run_type == Run::RT_Aggregate && r.aggregate_name == "median") {
                median_[name] = true;
                time_[name] = t;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        print_([this](const std::string &name) { return time_.count(name) ? time_[name] : 0.0; });
    }

  private:
    Printer print_;
    Clock clock_;
    std::map<std::string, double> time_;
    std::map<std::string, bool> median_;
};

// The benchmark program's main with the reporter.
inline int run_with_ratios(int argc, char **argv, RatioReporter::Printer print,
                           RatioReporter::Clock clock = RatioReporter::Clock::Cpu) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter(std::move(print), clock);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

}  // namespace vorl::bench
