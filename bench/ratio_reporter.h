// Console output of a benchmark run, then ratios between its benchmarks'
// CPU times (the median of each when the run repeats them), so a figure is
// always a ratio against a peer measured in the same run.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vorl::bench {

class RatioReporter : public benchmark::ConsoleReporter {
  public:
    // print(cpu) runs after the table; cpu(name) is 0 for a benchmark that
    // did not run.
    using Printer = std::function<void(const std::function<double(const std::string &)> &cpu)>;
    explicit RatioReporter(Printer print) : print_(std::move(print)) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs) {
            if (r.error_occurred) continue;
            const std::string name = r.run_name.str();
            if (r.run_type == Run::RT_Iteration && !median_.count(name)) cpu_[name] = r.GetAdjustedCPUTime();
            if (r.run_type == Run::RT_Aggregate && r.aggregate_name == "median") {
                median_[name] = true;
                cpu_[name] = r.GetAdjustedCPUTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        print_([this](const std::string &name) { return cpu_.count(name) ? cpu_[name] : 0.0; });
    }

  private:
    Printer print_;
    std::map<std::string, double> cpu_;
    std::map<std::string, bool> median_;
};

// The benchmark program's main with the reporter.
inline int run_with_ratios(int argc, char **argv, RatioReporter::Printer print) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter(std::move(print));
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

}  // namespace vorl::bench
